#include "rules.h"

#include <algorithm>
#include <cctype>

std::string in_quotes(const std::string &word)
{
    return '"' + word + '"';
}

std::string reference_to(const std::string &name)
{
    return "$(" + name + ")";
}

std::string meant(const std::string &word)
{
    return word.empty() ? "" : "; " + in_quotes(word) + "?";
}

std::string text_of(const char *text)
{
    return text ? text : "";
}

void for_each_line(const Product &product,
                   const std::function<void(const ProductFile &, const Line &)> &take)
{
    for (const FileKind kind : all_files)
        for (const Line &line : product.file(kind)->lines)
            take(*product.file(kind), line);
}

std::string section_of(const ProductFile &file, const Line &line)
{
    return line.section < 0 ? "" : folded(file.sections[static_cast<size_t>(line.section)].name);
}

bool is_plain_name(const std::string &word)
{
    return !word.empty() && std::all_of(word.begin(), word.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '_';
    });
}

std::string only_reference(const std::string &field)
{
    Reference reference;
    const bool is_one = find_reference(field.c_str(), reference) && reference.end &&
                        reference.begin == field.c_str() && !*reference.end;
    return is_one ? reference.name : "";
}
