// What differs between this machine and a private view of it, entry by entry; as text for people
// and as JSON for programs. Only what was changed is read, not the machine.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "lib.h"
#include "view.h"

enum class Change { created, changed, removed };

// What an entry is like. Times are not part of it.
struct Face {
    mode_t mode = 0; // with its type; 0: there is nothing
    uid_t owner = 0;
    gid_t group = 0;
    off_t size = 0;           // of a file's content
    dev_t device = 0;         // that a device stands for
    std::string target = {};  // what a link points to
    std::uint64_t digest = 0; // of a file's content, where it was asked for

    bool operator==(const Face &) const = default;
};

struct Difference {
    std::string path;
    Change change;
    Face before;
    Face after;
    bool other_content; // of a file that was one before and after
    size_t layer;       // the part of the view it is in
    std::string within; // its path there
};

// All differences, sorted by path. With `digests` the faces of files that are there afterwards have
// a digest of their content. What was found out on the way is said in sentences.
std::vector<Difference> find_differences(const View &view, bool digests,
                                         std::vector<std::string> &said);

// An entry before and after, opened for reading; not open where there is nothing to read.
Descriptor open_before(const View &view, const Difference &difference);
Descriptor open_after(const View &view, const Difference &difference);

// The changed text as a unified diff, made by the system's diff; "" where there is none. False when
// there is no such program.
bool unified_diff(const View &view, const Difference &difference, std::string &text);

// The word for a change, "created" and so on.
const char *change_word(Change change);

// "created  -rw-r--r-- root root   14 /srv/site/index.html": one line, with what was before, and
// with unprintable characters as \ooo.
std::string as_text(const Difference &difference);

// One JSON object, without a line end; `diff` is part of it when not empty. A path or target that
// is not UTF-8 has its wrong bytes replaced, and is given once more as "path_base16".
std::string as_json(const Difference &difference, const std::string &diff);

// The permissions in a mode, as "0644".
std::string octal_mode(mode_t mode);

// A name fit for a terminal: unprintable characters, and backslashes, as \ooo.
std::string printable(const std::string &name);
