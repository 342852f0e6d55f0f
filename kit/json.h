// JSON for programs, written piece by piece.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The text with U+FFFD in the place of each byte that is no part of UTF-8.
std::string utf8_of(std::string_view text);

// Texts that are no UTF-8 are written as utf8_of() gives them.
class JsonWriter {
  public:
    // With `indent` each value has a line of its own, so many blanks deeper than the one around it;
    // 0: all is on one line.
    explicit JsonWriter(size_t indent = 0) : blanks(indent) {}

    // Begins an object, '{', or an array, '['.
    void begin(char bracket);
    void begin(const std::string &key, char bracket);
    // Ends what was begun last.
    void end();

    void add(const std::string &key, std::string_view text);
    void add_number(const std::string &key, std::uint64_t number);
    // To an array.
    void add(std::string_view text);

    // What has been written, without a line end.
    const std::string &text() const { return written; }

  private:
    void go_on();
    void start_line();
    void write_key(const std::string &key);
    void open(char bracket);
    void quote(std::string_view text);

    size_t blanks;
    std::string written;
    std::string closing; // brackets, the last one first needed
    bool is_first = true;
};
