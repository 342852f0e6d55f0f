#include "json.h"

#include <cstdio>
#include <utility>

// --- UTF-8 -----------------------------------------------------------------------------------

namespace {

// The bytes that a letter may begin with, what may be the second one, and how many there are.
struct LetterForm {
    unsigned char first, last;
    unsigned char second_first, second_last;
    size_t size;
};

constexpr LetterForm letter_forms[] = {
    {0x00, 0x7f, 0x00, 0xff, 1}, {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

bool is_between(char byte, unsigned char first, unsigned char last)
{
    const auto value = static_cast<unsigned char>(byte);
    return first <= value && value <= last;
}

bool begins_with(std::string_view text, const LetterForm &form)
{
    if (text.size() < form.size || !is_between(text[0], form.first, form.last))
        return false;
    bool is_whole = form.size == 1 || is_between(text[1], form.second_first, form.second_last);
    for (size_t at = 2; at < form.size; at++)
        is_whole = is_whole && is_between(text[at], 0x80, 0xbf);
    return is_whole;
}

// The number of bytes of the first letter; 0 when it is no UTF-8.
size_t letter_size(std::string_view text)
{
    for (const LetterForm &form : letter_forms)
        if (begins_with(text, form))
            return form.size;
    return 0;
}

} // namespace

std::string utf8_of(std::string_view text)
{
    std::string letters;
    while (!text.empty()) {
        const size_t size = letter_size(text);
        letters += size > 0 ? text.substr(0, size) : "\uFFFD";
        text.remove_prefix(size > 0 ? size : 1);
    }
    return letters;
}

// --- Writing ---------------------------------------------------------------------------------

namespace {

// "\n" and the like, or by its number.
std::string control_letter(char letter)
{
    constexpr std::pair<char, char> words[] = {
        {'\b', 'b'}, {'\f', 'f'}, {'\n', 'n'}, {'\r', 'r'}, {'\t', 't'}};
    for (const auto &[control, word] : words)
        if (letter == control)
            return {'\\', word};
    char number[8];
    std::snprintf(number, sizeof number, "\\u%04x", letter);
    return number;
}

} // namespace

void JsonWriter::begin(char bracket)
{
    go_on();
    open(bracket);
}

void JsonWriter::begin(const std::string &key, char bracket)
{
    write_key(key);
    open(bracket);
}

void JsonWriter::end()
{
    const char bracket = closing.back();
    closing.pop_back();
    if (!is_first)
        start_line();
    written += bracket;
    is_first = false;
}

void JsonWriter::add(const std::string &key, std::string_view text)
{
    write_key(key);
    quote(text);
}

void JsonWriter::add_number(const std::string &key, std::uint64_t number)
{
    write_key(key);
    written += std::to_string(number);
}

void JsonWriter::add(std::string_view text)
{
    go_on();
    quote(text);
}

// To the next value of what is open.
void JsonWriter::go_on()
{
    if (!is_first)
        written += ',';
    if (!closing.empty())
        start_line();
    is_first = false;
}

void JsonWriter::start_line()
{
    if (blanks > 0)
        written += '\n' + std::string(blanks * closing.size(), ' ');
}

void JsonWriter::write_key(const std::string &key)
{
    go_on();
    quote(key);
    written += blanks > 0 ? ": " : ":";
}

void JsonWriter::open(char bracket)
{
    written += bracket;
    closing += bracket == '{' ? '}' : ']';
    is_first = true;
}

void JsonWriter::quote(std::string_view text)
{
    written += '"';
    for (const char each : utf8_of(text)) {
        if (each == '"' || each == '\\')
            written += {'\\', each};
        else if (is_between(each, 0, 0x1f))
            written += control_letter(each);
        else
            written += each;
    }
    written += '"';
}
