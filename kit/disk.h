// What the copy script of a product makes and takes away, followed command by command without
// touching anything: which paths there are when a command runs.
//
// Paths are as Flow::path gives them: relative to the product's folder, or beginning with "/" or
// with the reference of a directory that is known only in a run. What the model cannot know it
// takes for possible: every question is answered with yes when in doubt.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "flow.h"
#include "nearest.h"
#include "product.h"

struct FolderEntry {
    std::string name;
    bool is_directory;
    bool is_link;
};

// The product's folder, each directory and each file of it looked at once.
class Folder {
  public:
    explicit Folder(const Product &of) : product(of) {}

    // The entries of a directory by its path in the folder ("" for the folder itself), sorted.
    const std::vector<FolderEntry> &list(const std::string &directory);

    // Their paths in the folder.
    const Words &paths(const std::string &directory);

    // Those that the last component of a path matches as a wildcard, in the directory before it.
    const std::vector<FolderEntry> &matches(const std::string &path);

    // The first line of a text file by its path in the folder; "" when it cannot be read.
    const std::string &first_line(const std::string &path);

  private:
    const Product &product;
    std::map<std::string, std::vector<FolderEntry>> known;
    std::map<std::string, Words> known_paths;
    std::unordered_map<std::string, std::vector<FolderEntry>> known_matches;
    std::map<std::string, std::string> first_lines;
};

bool has_wildcard(const std::string &path);

// A path divided at its last separator, as commands divide theirs: "$(d)/" and "*.html".
struct SplitPath {
    std::string directory; // with the separator; "" without one
    std::string name;
};
SplitPath split_path(const std::string &path);

// The path without separators at its end; "/" stays.
std::string without_slash(std::string path);

// True for the path of something right in a directory, which ends with its separator or is "".
bool lies_in(const std::string &path, const std::string &directory);

// True when the path is known to be in the product's folder: it is relative, and certain.
bool is_in_folder(const std::string &path);

// Something that a command has made.
struct Made {
    const Line *line; // the command
    bool is_directory = false;
    std::string source = ""; // in the product's folder; "": none
};

class Disk {
  public:
    explicit Disk(Folder &in) : folder(&in) {}

    // Runs a command on the model.
    void apply(const Line &line, const Flow &flow);
    // Takes over what another model has made.
    void add(const Disk &other);
    void make(const std::string &path, const Made &what);

    // What is there of a path, whose last component may be a wildcard.
    std::vector<std::string> found(const std::string &path) const;
    // False when nothing can be there: no command has made it, although commands make its
    // surroundings.
    bool may_have(const std::string &path) const;
    // True when it is a directory that a command made, or one that the product's folder has.
    bool is_directory(const std::string &path) const;
    // True when it is a file that a command made.
    bool is_file(const std::string &path) const;
    // True when a command makes this, or something in it.
    bool makes_at(const std::string &path) const;

    const std::map<std::string, Made> &made() const { return all; }
    // What was made once and has been taken away since; some of it may have been made again.
    const std::set<std::string> &taken() const { return gone; }

  private:
    void copy_tree(const std::string &from, const std::string &to, const Line &line,
                   const char *not_list, int depth);
    void copy_made(const std::string &source, const std::string &target, const Line &line);
    void apply_copy(const Line &line, const Flow &flow);
    void remove(const std::string &path);
    void rename(const std::string &from, const std::string &to, const Line &line, bool for_certain);

    Folder *folder; // not owned
    void put(const std::string &path, const Made &what);

    std::map<std::string, Made> all;
    std::set<std::string> gone;
    std::set<std::string> opaque; // directories that something unknown goes into
};

// Runs a section of the copy script on a model, and calls back before each command.
using CommandStep =
    std::function<void(const Line &line, const copy_cmd &command, const Disk &disk)>;
void walk_section(const Product &product, const Flow &flow, const std::string &section, Disk &disk,
                  const CommandStep &step);

// The models of a product, each made once.
class Disks {
  public:
    Disks(const Product &of, const Flow &with, Folder &in);

    // As a section finds it: what the probes write, and for every section but install what install
    // and upgrade have made.
    const Disk &before(const std::string &section) const;

    // Every path that any section makes at any time, and every directory that one is told to make.
    const std::set<std::string> &written() const { return all_written; }
    // The same, to look among for one that is near.
    const Words &paths() const { return all_paths; }
    // The one that a path is probably meant for, of those that lie beside it, or have its name in
    // another directory; "" when none is near.
    std::string nearest_written(const std::string &path) const;
    bool makes_directory(const std::string &directory) const;

  private:
    Disk fresh;
    Disk installed;
    Disk upgraded;
    std::set<std::string> all_written;
    std::set<std::string> directories;
    Words all_paths; // that are written
};
