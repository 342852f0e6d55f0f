// A product as its author wrote it: the four files that bear its name, each line with its number
// and with what the installer makes of it. The lines are read by the installer's own readers and
// taken apart by its own parsers; nothing here knows a format.
//
// One command, question or probe of a run is an entry of a section; an entry is found by its
// number, as `Loop` counts, and knows the line it stands on.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "copy.h"
#include "init.h"
#include "quest.h"

// What a line is to the installer.
enum class LineKind {
    blank,
    comment,
    header,  // "[section]"
    entry,   // a complete setting, probe, question or command
    dropped, // one that lacks a field; of the init script: one that leaves its fields to the next
    outside, // before the first section
};

// A text with the 26 upper-case letters in lower case, as the installer folds them.
std::string folded(std::string text);

// A setting of the data file.
struct DataSetting {
    std::string name;
    std::string value; // "": it begins without one
};

// Release a parsed record with its texts.
struct RecordRelease {
    void operator()(copy_cmd *command) const;
    void operator()(quest *question) const;
    void operator()(init_item *item) const;
    void operator()(DataSetting *setting) const { delete setting; }
};

template <typename T> using Record = std::unique_ptr<T, RecordRelease>;

struct Line {
    unsigned number = 0;   // in the file, from 1
    bool is_piece = false; // it goes on with a line of more than 999 bytes, which has this number
    LineKind kind = LineKind::blank;
    int section = -1;                // index of the section it stands in; -1: none
    int entry = -1;                  // its number in the section, or in a file without sections
    std::string text;                // trimmed, as the installer gets it
    std::vector<std::string> fields; // of a line with content: its texts between blanks

    // What the line was parsed to, for an entry or a dropped line: one of these, by its file.
    Record<DataSetting> setting;
    Record<init_item> probe;
    Record<quest> question;
    Record<copy_cmd> command;
};

struct Section {
    std::string name;
    size_t header; // index of its header's line
    bool is_read;  // false: an earlier one bears the same name, and only that is ever read
};

enum class FileKind { data, init, questions, copy };

// One file of a product.
struct ProductFile {
    FileKind kind = FileKind::data;
    std::string name;      // in the product's folder, as "install.cpy"
    std::string problem;   // why it could not be read, as the system says; "": it was
    bool is_there = false; // false: there is no such file
    std::vector<Line> lines;
    std::vector<Section> sections;
    std::unordered_map<std::string, size_t> section_numbers; // of those read, by folded name
};

struct Product {
    std::string folder; // "." or as it was given
    std::string name;
    ProductFile data;
    ProductFile init;
    ProductFile questions;
    ProductFile copy;

    // The files in the order of a run.
    const ProductFile *file(FileKind kind) const;
    // A name in the folder, as the path that leads there from the working directory.
    std::string path(std::string_view name_in_folder) const;
};

// The product of a name in a folder; with "" the folder's only one. False, with a sentence in
// `problem`, when there is none, when there are several, and when a file is there and cannot be
// read.
bool load_product(const std::string &folder, const std::string &name, Product &product,
                  std::string &problem);

// The section of that name that a run reads (names are compared without regard to case); null when
// there is none.
const Section *find_section(const ProductFile &file, std::string_view name);

// The line of an entry by its number in a section ("" in the data file and the init script); null
// when there is none. This is what maps a run's command number i to its place in the file.
const Line *find_entry(const ProductFile &file, std::string_view section, int entry);

// The lines of a section in file order, without its header; those of the whole file for "".
std::vector<const Line *> section_lines(const ProductFile &file, std::string_view section);

// The entries of a file in file order, those of all its sections; and those of one section.
std::vector<const Line *> entries_of(const ProductFile &file);
std::vector<const Line *> entries_of(const ProductFile &file, std::string_view section);

// True for a type that a person is asked.
bool is_asked(QType type);

// The settings that a section asks for.
std::set<std::string> asked_in(const Product &product, std::string_view section);

// "install.cpy:23".
std::string place_of(const ProductFile &file, const Line &line);

// True for a file whose name ends, in lower case, as those of settings usually do: ".conf".
bool has_settings_ending(std::string_view name);

// One line of a template, as the `Ini` command reads it.
struct TemplateLine {
    unsigned number;
    std::string text; // with its leading blanks, without its line end
};

// The lines of a text file at a path; false when it cannot be read.
bool read_template(const std::string &path, std::vector<TemplateLine> &lines);
