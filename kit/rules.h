// What the families of rules share: the words of a finding, and short ways through a product.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "check.h"

constexpr Rule end_of_rules = {nullptr, Severity::error, nullptr, nullptr};

// A word in quotation marks; a reference to a setting.
std::string in_quotes(const std::string &word);
std::string reference_to(const std::string &name);

// `; "word"?`, or nothing for "".
std::string meant(const std::string &word);

// A text that may be null, "" then.
std::string text_of(const char *text);

constexpr FileKind all_files[] = {FileKind::data, FileKind::init, FileKind::questions,
                                  FileKind::copy};

// Calls back for each line of the four files.
void for_each_line(const Product &product,
                   const std::function<void(const ProductFile &file, const Line &line)> &take);

// The name of the section that a line stands in, in lower case; "" for none.
std::string section_of(const ProductFile &file, const Line &line);

// True when a word can be meant for the name of a setting: letters, digits and "_".
bool is_plain_name(const std::string &word);

// The name in a field that is one whole reference, as "$(dir)"; "" for any other.
std::string only_reference(const std::string &field);
