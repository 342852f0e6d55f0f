// Wildcards and their lists: a text and a pattern, each a line, against the definition of matching,
// which takes exponential time and is therefore asked about short texts only.
#include <algorithm>
#include <sstream>

#include "fuzz.h"
#include "lib.h"

namespace {

bool defined_match(const char *text, const char *pattern, bool case_sensitive)
{
    const auto equal = [&](bool exactly) {
        const auto fold = [](char c) { return charmap[static_cast<unsigned char>(c)]; };
        return exactly ? *text == *pattern : fold(*text) == fold(*pattern);
    };
    if (!*pattern)
        return !*text;
    if (*pattern == '*') {
        while (*pattern == '*')
            pattern++;
        if (!*pattern)
            return true;
        for (; *text; text++)
            if (equal(false) && defined_match(text, pattern, case_sensitive))
                return true;
        return false;
    }
    return *text && (*pattern == '?' || equal(case_sensitive)) &&
           defined_match(text + 1, pattern + 1, case_sensitive);
}

bool defined_list(std::string texts, std::string patterns, bool case_sensitive)
{
    for (std::string *list : {&texts, &patterns})
        std::replace_if(
            list->begin(), list->end(), [](char c) { return c == ',' || c == '\t'; }, ' ');
    std::string text, pattern;
    for (std::istringstream some(texts); std::getline(some, text, ' ');)
        for (std::istringstream others(patterns); std::getline(others, pattern, ' ');)
            if (!text.empty() && !pattern.empty() &&
                defined_match(text.c_str(), pattern.c_str(), case_sensitive))
                return true;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    std::istringstream input(std::string(bytes, bytes + size));
    std::string text, pattern;
    std::getline(input, text);
    std::getline(input, pattern, '\0');
    text.erase(std::min(text.find('\0'), text.size()));
    for (const int exact : {0, 1}) {
        const auto list_match = exact ? wild_list : wild_ilist;
        const int matched = wmatch(text.c_str(), pattern.c_str(), exact);
        const int listed = list_match(text.c_str(), pattern.c_str());
        if (text.size() > 24 || pattern.size() > 16)
            continue;
        require(matched == defined_match(text.c_str(), pattern.c_str(), exact), "as defined");
        require(listed == defined_list(text, pattern, exact), "lists as defined");
    }
    return 0;
}
