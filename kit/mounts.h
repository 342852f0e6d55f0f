// The mounts that this process sees, and the calls on them for which the C library of older systems
// has no function.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib.h"

struct Mount {
    std::string path;
    std::string type;    // of the file system, as "ext4"
    unsigned long flags; // MS_NOSUID and the like, as mount(2) takes them
    bool is_read_only;   // the mount or its file system
    Descriptor place;    // not open: its path does not lead to it, but to one mounted over it
};

// All mounts, sorted by their paths: each comes before those that stand on it. Empty when the
// system does not tell.
std::vector<Mount> read_mounts();

// True when the file system holds no files of anybody's, but shows the system's own state.
bool is_pseudo(const Mount &mount);

// The number of the mount that an open path is on; 0 when the system does not tell.
std::uint64_t mount_number(int path);

// A private copy of what an open path shows, together with what is mounted on it where the system
// does not give it without. Not open when it fails.
Descriptor clone_mount(int path);

// Puts a private copy in its place, an open path. False with errno set.
bool attach_mount(const Descriptor &clone, int place);

// Makes a directory's mount and all that is mounted below it read-only. False with errno set.
bool make_read_only(const char *path);

// An open descriptor as a path, for calls that take nothing else.
std::string descriptor_path(int descriptor);
