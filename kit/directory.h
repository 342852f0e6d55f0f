// Directories: what lies in one by its path, and their names for walks that go by open directories.
#pragma once

#include <string>

#include <dirent.h>
#include <fcntl.h>

#include "lib.h"

// True when a path is the directory or lies below it; both begin at the same place.
bool is_below(const std::string &path, const std::string &directory);

// The path of an entry of a directory.
std::string child_path(const std::string &directory, const std::string &name);

// Opens whatever bears a name, a link too, to look at it or to go on from there.
constexpr int look_only = O_PATH | O_NOFOLLOW | O_CLOEXEC;

void directory_free(DIR **stream);

using Directory = Owned<DIR, directory_free>;

// Opens a directory by its path below an open one, no link being followed at its end; null when
// that cannot be.
Directory open_list(int parent, const char *path);

// The next entry but "." and ".."; null at the end and for null.
const dirent *next_entry(const Directory &directory);
