// Wildcards and their lists: a text and a pattern, each a line, against the definition of matching,
// which takes exponential time and is therefore asked about short texts only.
#include <cstring>
#include <sstream>

#include "fuzz.h"

static bool defined_match(const char *text, const char *pattern, bool case_sensitive)
{
    const auto equal = [&](bool exactly) {
        const auto fold = [](char c) { return charmap[static_cast<unsigned char>(c)]; };
        return exactly ? *text == *pattern : fold(*text) == fold(*pattern);
    };
    if (!*pattern)
        return !*text;
    if (*pattern != '*')
        return *text && (*pattern == '?' || equal(case_sensitive)) &&
               defined_match(text + 1, pattern + 1, case_sensitive);
    pattern += std::strspn(pattern, "*");
    if (!*pattern)
        return true;
    for (; *text; text++)
        if (equal(false) && defined_match(text, pattern, case_sensitive))
            return true;
    return false;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    std::istringstream input(std::string(bytes, bytes + size));
    std::string text, pattern;
    std::getline(std::getline(input, text), pattern, '\0');
    text.erase(std::min(text.find('\0'), text.size()));
    const bool single = (text + pattern).find_first_of(" \t,") == text.npos && !text.empty();
    for (const int exact : {0, 1}) {
        const int matched = wmatch(text.c_str(), pattern.c_str(), exact);
        const int listed = (exact ? wild_list : wild_ilist)(text.c_str(), pattern.c_str());
        require(!single || listed == matched, "a list of one text and one pattern");
        if (text.size() <= 24 && pattern.size() <= 16)
            require(matched == defined_match(text.c_str(), pattern.c_str(), exact), "as defined");
    }
    return 0;
}
