#include "lib.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

void out_of_memory()
{
    constexpr std::string_view message = "Out of memory\n";
    if (::write(STDERR_FILENO, message.data(), message.size()) < 0)
        std::abort();
    std::_Exit(EXIT_FAILURE);
}

void text_free(char **text)
{
    std::free(*text);
    *text = nullptr;
}

bool Descriptor::close()
{
    return !is_open() || ::close(release()) == 0;
}

void LastError::set(const char *message)
{
    kept.reset(s_strdup(message));
}

// --- Null-tolerant wrappers -----------------------------------------------------------------

// clang-format off
const unsigned char charmap[256] = {
    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25,
    26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48,
    49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63, 64, 'a', 'b', 'c', 'd', 'e', 'f',
    'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v', 'w', 'x',
    'y', 'z', 91, 92, 93, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104, 105, 106, 107, 108,
    109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126,
    127, 128, 129, 130, 131, 132, 133, 134, 135, 136, 137, 138, 139, 140, 141, 142, 143, 144,
    145, 146, 147, 148, 149, 150, 151, 152, 153, 154, 155, 156, 157, 158, 159, 160, 161, 162,
    163, 164, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 175, 176, 177, 178, 179, 180,
    181, 182, 183, 184, 185, 186, 187, 188, 189, 190, 191, 192, 193, 194, 195, 196, 197, 198,
    199, 200, 201, 202, 203, 204, 205, 206, 207, 208, 209, 210, 211, 212, 213, 214, 215, 216,
    217, 218, 219, 220, 221, 222, 223, 224, 225, 226, 227, 228, 229, 230, 231, 232, 233, 234,
    235, 236, 237, 238, 239, 240, 241, 242, 243, 244, 245, 246, 247, 248, 249, 250, 251, 252,
    253, 254, 255,
};
// clang-format on

namespace {

unsigned char folded(char c)
{
    return charmap[static_cast<unsigned char>(c)];
}

bool is_space(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

} // namespace

int s_atoi(const char *text)
{
    return text ? std::atoi(text) : 0;
}

int s_strcmp(const char *a, const char *b)
{
    return a && b ? std::strcmp(a, b) : -1;
}

int s_stricmp(const char *a, const char *b)
{
    if (!a || !b)
        return -1;
    while (*a && *b && folded(*a) == folded(*b)) {
        a++;
        b++;
    }
    return folded(*a) - folded(*b);
}

char *s_strtrm(char *text)
{
    if (!text)
        return nullptr;
    // The end goes first: a caller that keeps the untrimmed start must not find blanks there.
    char *end = text + std::strlen(text);
    while (end > text && is_space(end[-1]))
        *--end = '\0';
    while (is_space(*text))
        text++;
    return text;
}

const char *s_strstr(const char *haystack, const char *needle)
{
    return haystack && needle ? std::strstr(haystack, needle) : nullptr;
}

char *s_strdup(const char *text)
{
    char *copy = text ? ::strdup(text) : nullptr;
    if (text && !copy)
        out_of_memory();
    return copy;
}

void s_assign(char **owned, const char *text)
{
    char *replacement = s_strdup(text);
    std::free(*owned);
    *owned = replacement;
}

// --- Bounded copies -------------------------------------------------------------------------

int scpy(char *destination, const char *source, int size)
{
    if (!destination || size < 1)
        return 0;
    const size_t length = source ? ::strnlen(source, static_cast<size_t>(size) - 1) : 0;
    if (length > 0)
        std::memmove(destination, source, length);
    destination[length] = '\0';
    return static_cast<int>(length);
}

int scat(char *destination, const char *source, int size)
{
    if (!destination || !source || size < 1)
        return 0;
    const int length = static_cast<int>(::strnlen(destination, static_cast<size_t>(size) - 1));
    if (length > size - 2) {
        destination[size - 1] = '\0';
        return size - 1;
    }
    return length + scpy(destination + length, source, size - 1 - length);
}

unsigned schunk(const char *source, const char *delimiters, char *destination, unsigned size)
{
    if (!source || !destination)
        return 0;
    size_t length = std::strcspn(source, delimiters);
    if (size > 0)
        length = std::min<size_t>(length, size - 1);
    std::memmove(destination, source, length);
    destination[length] = '\0';
    return static_cast<unsigned>(length);
}

char *spre(char *text, const char *prefix, unsigned size)
{
    if (!text || !prefix)
        return nullptr;
    const size_t added = std::strlen(prefix);
    const size_t length = std::strlen(text);
    if (added + length >= size)
        return nullptr;
    std::memmove(text + added, text, length + 1);
    std::memcpy(text, prefix, added);
    return text;
}

char *sreplace(const char *source, const char *search, const char *replacement, char *destination,
               unsigned size)
{
    if (!source || !search || !destination || size == 0)
        return nullptr;
    BoundedText result(destination, size);
    result.append_replaced(source, search, replacement);
    return destination;
}

char *smake(const char *source, unsigned n)
{
    if (!source || n == 0)
        return nullptr;
    char *text = static_cast<char *>(std::malloc(static_cast<size_t>(n) + 1));
    if (!text)
        out_of_memory();
    scpy(text, source, static_cast<int>(n));
    return text;
}

char *sadd(char *text, const char *addition)
{
    if (!addition)
        return text;
    const size_t length = text ? std::strlen(text) : 0;
    const size_t added = std::strlen(addition) + 1;
    char *longer = static_cast<char *>(std::realloc(text, length + added));
    if (!longer)
        return text;
    std::memcpy(longer + length, addition, added);
    return longer;
}

void BoundedText::append(std::string_view addition)
{
    const size_t length = std::min(addition.size(), room());
    if (length > 0)
        std::memcpy(text + used, addition.data(), length);
    used += length;
    text[used] = '\0';
    cut = cut || length < addition.size();
}

void BoundedText::append_replaced(const char *source, const char *search, const char *replacement)
{
    while (const char *match = *search ? std::strstr(source, search) : nullptr) {
        append({source, static_cast<size_t>(match - source)});
        if (replacement)
            append(replacement);
        source = match + std::strlen(search);
    }
    append(source);
}

// --- Truth words ----------------------------------------------------------------------------

namespace {

bool is_word_of(const char *text, std::initializer_list<const char *> words)
{
    return std::any_of(words.begin(), words.end(),
                       [text](const char *word) { return s_stricmp(text, word) == 0; });
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

} // namespace

int istrue(const char *text)
{
    return is_word_of(text, {"true", "yes", "y", "on", "checked", "selected"}) || s_atoi(text) != 0;
}

int isfalse(const char *text)
{
    if (!text || !*text)
        return 0;
    if (is_word_of(text, {"false", "no", "n", "off"}))
        return 1;
    return (is_digit(text[0]) || is_digit(text[1])) && s_atoi(text) == 0;
}

// --- The formatter --------------------------------------------------------------------------

namespace {

// An argument list that can be handed on by reference, whatever type va_list is.
struct Arguments {
    va_list list;
};

struct Conversion {
    char flags[6] = "";
    int width = 0;
    int precision = -1; // none
    char letter = '\0';
};

// The number in a width or a precision: digits, or "*" for the next argument, of which a negative
// one is ignored.
int conversion_number(const char **format, Arguments &arguments, int none)
{
    if (**format == '*') {
        ++*format;
        const int value = va_arg(arguments.list, int);
        return value < 0 ? none : value;
    }
    constexpr int most = 100'000'000;
    int value = 0;
    for (; is_digit(**format); ++*format)
        value = std::min(value * 10 + (**format - '0'), most);
    return value;
}

// Reads the conversion that follows a "%"; returns what comes behind it.
const char *read_conversion(const char *format, Conversion &conversion, Arguments &arguments)
{
    size_t flags = 0;
    for (; *format && std::strchr("-+0 #", *format); format++)
        if (!std::strchr(conversion.flags, *format))
            conversion.flags[flags++] = *format;
    conversion.width = conversion_number(&format, arguments, 0);
    if (*format == '.') {
        format++;
        conversion.precision = conversion_number(&format, arguments, -1);
    }
    conversion.letter = *format;
    return *format ? format + 1 : format;
}

// The patterns are made here, so that the compiler cannot check them.
constexpr int (*print_unchecked)(char *, size_t, const char *, ...) = std::snprintf;

// A number or pointer, formatted by the standard library.
template <typename Value>
void append_number(BoundedText &output, const Conversion &conversion, Value value)
{
    const std::string pattern = std::string("%") + conversion.flags +
                                (conversion.letter == 'p' ? "*" : "*.*") + conversion.letter;
    const auto print = [&](char *buffer, size_t size) {
        if constexpr (std::is_pointer_v<Value>)
            return print_unchecked(buffer, size, pattern.c_str(), conversion.width, value);
        else
            return print_unchecked(buffer, size, pattern.c_str(), conversion.width,
                                   conversion.precision, value);
    };
    std::array<char, 64> brief;
    const int length = print(brief.data(), brief.size());
    if (length < 0)
        return;
    if (static_cast<size_t>(length) < brief.size()) {
        output.append(brief.data());
        return;
    }
    std::string whole(static_cast<size_t>(length), '\0');
    print(whole.data(), whole.size() + 1);
    output.append(whole.c_str());
}

void append_text(BoundedText &output, const Conversion &conversion, const char *text)
{
    if (!text) {
        output.append("(NULL)");
        return;
    }
    const size_t length = conversion.precision < 0
                              ? std::strlen(text)
                              : ::strnlen(text, static_cast<size_t>(conversion.precision));
    const size_t width = static_cast<size_t>(conversion.width);
    const size_t padding = width > length ? std::min(width - length, output.room()) : 0;
    const bool left = std::strchr(conversion.flags, '-') != nullptr;
    if (!left)
        output.append(std::string(padding, ' '));
    output.append({text, length});
    if (left)
        output.append(std::string(padding, ' '));
}

void append_field(BoundedText &output, Conversion conversion, Arguments &arguments)
{
    switch (conversion.letter) {
    case 'C':
        conversion.letter = 'c';
        [[fallthrough]];
    case 'c':
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        append_number(output, conversion, va_arg(arguments.list, int));
        break;
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
        append_number(output, conversion, va_arg(arguments.list, double));
        break;
    case 's':
    case 'S':
        append_text(output, conversion, va_arg(arguments.list, const char *));
        break;
    case 'p':
        append_number(output, conversion, va_arg(arguments.list, void *));
        break;
    default:
        *va_arg(arguments.list, int *) = static_cast<int>(output.length());
        break;
    }
}

} // namespace

int vplp_snprintf(char *buffer, unsigned size, const char *format, va_list arguments)
{
    if (!buffer || !format)
        return 0;
    if (size == 0)
        return -1;
    Arguments rest;
    va_copy(rest.list, arguments);
    BoundedText output(buffer, size);
    bool overflowed = false;
    while (*format && !overflowed) {
        if (*format != '%' || format[1] == '%') {
            // A field that is cut still fits; a literal character that does not is an overflow,
            // and takes the place of the terminator.
            const char literal = *format;
            format += literal == '%' ? 2 : 1;
            overflowed = output.room() == 0;
            if (overflowed)
                buffer[size - 1] = literal;
            else
                output.append({&literal, 1});
            continue;
        }
        Conversion conversion;
        format = read_conversion(format + 1, conversion, rest);
        if (!conversion.letter)
            break;
        append_field(output, conversion, rest);
    }
    va_end(rest.list);
    return overflowed ? -1 : static_cast<int>(output.length());
}

int plp_snprintf(char *buffer, unsigned size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = vplp_snprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int vlprintf(char *buffer, unsigned size, const char *format, va_list arguments)
{
    if (!buffer || size == 0)
        return 0;
    buffer[0] = '\0';
    const int length = vplp_snprintf(buffer, size, format, arguments);
    if (length >= 0)
        return length;
    buffer[size - 1] = '\0';
    return static_cast<int>(size) - 1;
}

int lprintf(char *buffer, unsigned size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = vlprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

void vformat_reasoned(char (&text)[reasoned_size], const char *reason, const char *format,
                      va_list arguments)
{
    const int length = vlprintf(text, line_size, format, arguments);
    if (reason)
        lprintf(text + length, static_cast<unsigned>(reasoned_size - length), ", %s", reason);
}

// --- Paths ----------------------------------------------------------------------------------

const char Sep = '/';

const char *last_component(const char *path)
{
    if (!path)
        return nullptr;
    const char *last = path;
    for (; *path; path++)
        if (is_separator(*path))
            last = path + 1;
    return last;
}

namespace {

// last_component for a path that may be changed.
char *last_component_of(char *path)
{
    return path + (last_component(path) - path);
}

} // namespace

char *strip_file(char *path, char *buffer, int size)
{
    if (!path)
        return nullptr;
    char *name = last_component_of(path);
    scpy(buffer, name, size);
    if (name > path)
        name[-1] = '\0';
    else
        path[0] = '\0';
    return path;
}

char *strip_path(char *path)
{
    if (!path)
        return nullptr;
    const char *name = last_component(path);
    std::memmove(path, name, std::strlen(name) + 1);
    return path;
}

char *strip_ext(char *path)
{
    if (!path)
        return nullptr;
    char *point = std::strrchr(last_component_of(path), '.');
    if (point && point != path)
        *point = '\0';
    return path;
}

int get_ext(char *buffer, const char *path, int size)
{
    if (!buffer || !path)
        return 0;
    const char *point = std::strchr(last_component(path), '.');
    return point ? scpy(buffer, point + 1, size) : 0;
}

char *attach_path(char *result, const char *name, unsigned size)
{
    if (!result || size == 0)
        return nullptr;
    const unsigned most = size - 1;
    unsigned length = 0;
    for (; length < most && result[length]; length++)
        if (is_separator(result[length]))
            result[length] = Sep;
    if (!name)
        return result;
    const bool ended = length > 0 && result[length - 1] == Sep;
    if (is_separator(*name)) {
        if (ended)
            name++;
    } else if (length > 0 && !ended && length < most) {
        result[length++] = Sep;
    }
    for (; *name && length < most; name++)
        result[length++] = is_separator(*name) ? Sep : *name;
    result[length] = '\0';
    return length > 0 ? result : nullptr;
}

char *attach_ext(char *result, const char *extension, unsigned size)
{
    if (!result || size == 0)
        return nullptr;
    const size_t length = ::strnlen(result, size - 1);
    scpy(result + length, extension, static_cast<int>(size - length));
    return result;
}

bool join_path(char (&result)[path_size], const char *directory, const char *name)
{
    const std::string_view above = directory;
    const bool ended = above.empty() || above.back() == Sep;
    const std::string_view below = name;
    if (above.size() + !ended + below.size() >= path_size)
        return false;
    BoundedText path(result, path_size);
    path.append(above);
    if (!ended)
        path.append({&Sep, 1});
    path.append(below);
    return true;
}

char *setsep(char *text, char separator)
{
    std::replace_if(text, text + std::strlen(text), is_separator, separator);
    return text;
}

char *exename(char *buffer, const char *argument, int size)
{
    if (!buffer || !argument)
        return nullptr;
    if (size > 0)
        schunk(last_component(argument), ".", buffer, static_cast<unsigned>(size));
    return buffer;
}

char *currentdir(char *buffer, int size)
{
    return buffer && size > 0 ? ::getcwd(buffer, static_cast<size_t>(size)) : nullptr;
}

char *systemdir(char *buffer, int size)
{
    if (!buffer)
        return nullptr;
    scpy(buffer, "/etc", size);
    return buffer;
}

// --- Wildcards ------------------------------------------------------------------------------

namespace {

constexpr std::string_view list_separators = " \t,";

// Matches without recursion: when the text stops fitting, only the last "*" has to take more. The
// character after a "*" is searched for with case folded in either mode, and a "?" there is looked
// for as itself.
bool matches(std::string_view text, std::string_view pattern, bool case_sensitive)
{
    constexpr size_t none = std::string_view::npos;
    size_t at = 0;
    size_t next = 0;
    size_t star_at = none; // where the last "*" stopped taking, and the pattern behind it
    size_t star_next = 0;
    const auto search_on = [&] {
        at = star_at;
        next = star_next;
        while (at < text.size() && folded(text[at]) != folded(pattern[next]))
            at++;
        star_at = at;
        return at < text.size();
    };
    while (true) {
        if (next < pattern.size() && pattern[next] == '*') {
            next = pattern.find_first_not_of('*', next);
            if (next == none)
                return true;
            star_at = at;
            star_next = next;
            if (!search_on())
                return false;
        }
        if (next == pattern.size() && at == text.size())
            return true;
        const bool fits = next < pattern.size() && at < text.size() &&
                          (pattern[next] == '?' || pattern[next] == text[at] ||
                           (!case_sensitive && folded(pattern[next]) == folded(text[at])));
        if (fits) {
            at++;
            next++;
            continue;
        }
        if (star_at == none)
            return false;
        star_at++;
        if (!search_on())
            return false;
    }
}

// Takes the first element off a list; empty when none is left.
std::string_view next_element(std::string_view &list)
{
    list.remove_prefix(std::min(list.find_first_not_of(list_separators), list.size()));
    const std::string_view element = list.substr(0, list.find_first_of(list_separators));
    list.remove_prefix(element.size());
    return element;
}

bool any_matches(const char *texts, const char *patterns, bool case_sensitive)
{
    if (!texts || !patterns)
        return false;
    std::string_view rest = texts;
    for (auto text = next_element(rest); !text.empty(); text = next_element(rest)) {
        std::string_view more = patterns;
        for (auto pattern = next_element(more); !pattern.empty(); pattern = next_element(more))
            if (matches(text, pattern, case_sensitive))
                return true;
    }
    return false;
}

} // namespace

int wmatch(const char *text, const char *pattern, int case_sensitive)
{
    return text && pattern && matches(text, pattern, case_sensitive != 0);
}

int wild_match(const char *text, const char *pattern)
{
    return wmatch(text, pattern, 1);
}

int wild_list(const char *texts, const char *patterns)
{
    return any_matches(texts, patterns, true);
}

int wild_ilist(const char *texts, const char *patterns)
{
    return any_matches(texts, patterns, false);
}

// --- Files of text --------------------------------------------------------------------------

FILE *s_fopen(const char *path, const char *mode)
{
    return path && mode ? std::fopen(path, mode) : nullptr;
}

void s_fclose(FILE **stream)
{
    if (!stream || !*stream)
        return;
    std::fclose(*stream);
    *stream = nullptr;
}

namespace {

FILE *open_stream(const char *path, int flags, const char *mode)
{
    if (!path)
        return nullptr;
    const int descriptor = ::open(path, flags | O_NONBLOCK | O_CLOEXEC, 0666);
    if (descriptor < 0)
        return nullptr;
    // Only the opening must not wait: what is written to a pipe must not be lost when it is full.
    if ((flags & O_ACCMODE) == O_WRONLY)
        ::fcntl(descriptor, F_SETFL, flags & O_APPEND);
    FILE *stream = ::fdopen(descriptor, mode);
    if (!stream)
        ::close(descriptor);
    return stream;
}

// Why a stream is not to be read, as errno; 0: it may be. A device or a pipe that has anything to
// say may go on saying it for ever; an empty one, such as the null device, is as good as an empty
// file.
int unreadable_reason(FILE *stream)
{
    struct stat info {};
    if (::fstat(::fileno(stream), &info) != 0)
        return errno;
    const bool plain = S_ISREG(info.st_mode) || S_ISDIR(info.st_mode);
    return plain || std::fgetc(stream) == EOF ? 0 : ENOTSUP;
}

} // namespace

FILE *open_text(const char *path)
{
    Stream stream(open_stream(path, O_RDONLY, "r"));
    const int reason = stream ? unreadable_reason(stream.get()) : 0;
    if (reason != 0) {
        stream.reset();
        errno = reason;
    }
    return stream.release();
}

FILE *create_text(const char *path)
{
    return open_stream(path, O_WRONLY | O_CREAT | O_TRUNC, "w");
}

FILE *append_text(const char *path)
{
    return open_stream(path, O_WRONLY | O_CREAT | O_APPEND, "a");
}

bool close_written(Stream &stream)
{
    const bool failed = std::ferror(stream.get()) != 0;
    const int reason = errno;
    if (std::fclose(stream.release()) != 0)
        return false;
    if (failed)
        errno = reason;
    return !failed;
}

char *read_text(FILE *stream)
{
    char piece[line_size - 1];
    std::optional<std::string> text;
    while (std::fgets(piece, static_cast<int>(std::size(piece)), stream))
        text = text ? std::move(*text) + piece : piece;
    return text ? s_strdup(text->c_str()) : nullptr;
}

char *next_field(char **rest)
{
    if (!*rest)
        return nullptr;
    char *field = *rest + std::strspn(*rest, " \t");
    char *end = field + std::strcspn(field, " \t");
    *rest = *end ? end + 1 : nullptr;
    *end = '\0';
    return *field ? field : nullptr;
}

char *section_name(char *line)
{
    if (!line || *line != '[')
        return nullptr;
    char *name = line + 1;
    const size_t length = std::strlen(name);
    if (length > 0 && name[length - 1] == ']')
        name[length - 1] = '\0';
    return name;
}

char *LineReader::next()
{
    // A piece that fills the buffer has its terminator in the last place, whatever bytes it holds.
    line[line_size - 1] = ' ';
    if (!stream || !std::fgets(line, line_size, stream.get()))
        return nullptr;
    line_number += at_line_start;
    look_behind_piece();
    return s_strtrm(line);
}

void LineReader::look_behind_piece()
{
    at_line_start = line[line_size - 1] != '\0' || line[line_size - 2] == '\n';
    cut = false;
    if (at_line_start)
        return;
    const int c = std::getc(stream.get());
    cut = c != '\n' && c != EOF;
    std::ungetc(c, stream.get());
}

char *LineReader::next_content()
{
    char *text = next();
    while (text && (*text == '\0' || *text == '#'))
        text = next();
    return text;
}

char *SectionReader::next()
{
    while (char *text = place == after ? nullptr : reader.next_content()) {
        if (const char *name = section_name(text))
            place = place == inside ? after : s_stricmp(name, section) == 0 ? inside : before;
        else if (place == inside)
            return text;
    }
    return nullptr;
}

// --- The terminal ---------------------------------------------------------------------------

namespace {

// After a call that failed, whether to make it again: it was interrupted, or it did not wait for a
// terminal that another program has set so, for which this waits.
bool may_try_again(int descriptor, short event)
{
    if (errno == EINTR)
        return true;
    pollfd wanted = {.fd = descriptor, .events = event, .revents = 0};
    return errno == EAGAIN && (::poll(&wanted, 1, -1) > 0 || errno == EINTR);
}

// The next character that is typed; EOF at the end and on an error.
int read_character()
{
    int c = std::getchar();
    while (c == EOF && !std::feof(stdin) && may_try_again(STDIN_FILENO, POLLIN)) {
        std::clearerr(stdin);
        c = std::getchar();
    }
    return c;
}

} // namespace

void say(const char *format, ...)
{
    const ErrnoKeeper keeper;
    char text[2 * line_size];
    va_list arguments;
    va_start(arguments, format);
    const int length = vlprintf(text, std::size(text), format, arguments);
    va_end(arguments);
    // Not through a stream, which would throw away what a terminal does not take at once.
    std::string_view rest(text, static_cast<size_t>(length));
    while (!rest.empty()) {
        const ssize_t shown = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (shown >= 0)
            rest.remove_prefix(static_cast<size_t>(shown));
        else if (!may_try_again(STDOUT_FILENO, POLLOUT))
            return;
    }
}

Input read_input(char *buffer, int size)
{
    const int before = errno;
    int c = input_ended() ? EOF : read_character();
    const bool at_end = c == EOF;
    int length = 0;
    for (; c != '\n' && c != EOF; c = read_character())
        if (length < size - 1)
            buffer[length++] = static_cast<char>(c);
    if (!at_end)
        buffer[length] = '\0';
    if (std::ferror(stdin))
        return Input::error;
    // That it had to be waited for is no reason for what comes after.
    errno = before;
    return at_end ? Input::end : Input::line;
}

bool input_ended()
{
    return std::feof(stdin) || std::ferror(stdin);
}
