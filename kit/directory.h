// The names in a directory, for walks that go by open directories.
#pragma once

#include <dirent.h>

#include "lib.h"

void directory_free(DIR **stream);

using Directory = Owned<DIR, directory_free>;

// Opens a directory by its path below an open one, no link being followed at its end; null when
// that cannot be.
Directory open_list(int parent, const char *path);

// The next entry but "." and ".."; null at the end and for null.
const dirent *next_entry(const Directory &directory);
