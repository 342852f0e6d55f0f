// The private tree: every file system that can be written, covered by an overlay that takes up what
// is changed; the rest carried along, read-only. It is put together in a mount namespace of its
// own.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "foreign.h"
#include "lib.h"
#include "mounts.h"

class Scratch;

// A part of the tree that takes up its own changes.
struct Layer {
    std::string path;  // where it stands: "/" or an absolute path without a '/' at its end
    Descriptor lower;  // the machine's directory, which can only be read through this
    Descriptor upper;  // where changes are taken up
    Descriptor merged; // the directory as the view shows it
    struct stat root;  // what `merged` was like before anything was run
    bool is_frame;     // only holds the places of others: there is no overlay
    bool keeps_names;  // a file with several names stays one file when it is changed
};

// The mode of what stands in a frame below the mount of a file.
constexpr mode_t frame_place = S_IFSOCK;

// How overlays note down what they did, by what the system allows.
enum class Notes { none, trusted, user };

class PrivateTree {
  public:
    // Covers all mounts of this process's namespace and makes the result its root; the machine's
    // own files can then be reached through the layers only. What is changed is taken up by the
    // scratch directory or, when there is none, by memory. False with `reason` set.
    // `ask` tells whose a path really is; empty where all are as they seem.
    bool build(const Scratch &scratch, const std::string &working_directory, AskOwner ask);

    std::vector<Layer> layers;
    std::set<std::uint64_t> held;  // the numbers of the mounts that the machine does not have
    std::vector<std::string> said; // what is not as on the machine, a sentence each
    std::string reason;            // why it could not be built
    Notes notes = Notes::none;
    Descriptor scratch_parent; // the directory in which the scratch directory can be removed

  private:
    bool fail(const std::string &what);
    bool prepare(const Scratch &scratch);
    bool try_room();
    bool cover(const Mount &mount);
    bool hold(const Mount &mount, const std::string &path, const Descriptor &lower,
              const Descriptor &place);
    bool overlay(const Mount &mount, const std::string &path, const Descriptor &lower,
                 const Descriptor &place);
    bool frame(const Mount &mount, const std::string &path, const Descriptor &lower,
               const Descriptor &place);
    bool frame_entry(const Mount &mount, const std::string &path, const char *name,
                     const Descriptor &lower, const Descriptor &inside);
    bool carry(const Descriptor &original, const Descriptor &place, const std::string &path);
    void hold_shared(const std::string &path, int depth);
    void hold_if_shared(const Mount &mount, const std::string &path);
    const Mount *mount_of(const std::string &path) const;
    bool has_mounts_below(const std::string &path) const;
    Descriptor place_of(const std::string &path) const;
    Descriptor make_numbered(const char *kind);
    bool enter();

    void resemble(const Descriptor &ours, const Descriptor &original) const;

    std::vector<Mount> mounts;
    std::string working; // the working directory
    AskOwner ask_owner;
    Descriptor stage; // our own file system
    Descriptor room;  // the directory in which changes are taken up
};
