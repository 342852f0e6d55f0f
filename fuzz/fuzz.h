// What the fuzz targets share: a place that hostile text cannot leave, and the same start for every
// input. They are run by scripts/fuzz, which shuts them in: all but /tmp is read-only there, and
// what they find in /tmp they remove.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ini.h"
#include "lib.h"

// The next piece of an input, up to a line "====" or the end of the input.
std::string take_piece(std::string_view &input);

// The input with paths that stay where they are: no ".." and a '/' only behind the name "d". Empty
// when each CopyDir into what a wildcard finds could double the tree too often.
std::string tame(const std::uint8_t *bytes, size_t size);

// Empties /tmp and makes a new working directory there, with the same text in f, d/f and d/e/g.
void make_scratch(std::string_view text);

void write_file(const char *path, std::string_view text);

// Adds settings, "name value" a line.
void add_settings(Ini *ini, std::string text);

// The text with its references filled in, in the plainest way and without a limit.
std::string filled_in(Ini *ini, std::string_view text, bool keep_unknown);

// Puts the modules' process-wide state back to that of a new process: no callbacks, no data file,
// and a log that goes nowhere. It is at debug level, which takes time, for every 16th input size.
void reset_modules(size_t input_size);

// Ends the process, for the fuzzer to report, when something does not hold.
void require(bool holds, const char *what);
