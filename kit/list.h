// `product-kit check --list`: the sections of a product as the program sees them.
#pragma once

#include <string>

struct Product;

// Prints a section of the question file and of the copy script, or with "" all files, on standard
// output: entries with their numbers, conditions in words, references filled in with the defaults
// of the data file. It goes into the product's folder. False when there is no such section.
bool list_section(const Product &product, const std::string &section);
