// The ground floor: bounded text in fixed buffers, truth words, the formatter behind every message,
// paths, wildcards, and the one way in which text files are opened and read.
//
// Texts are NUL-terminated bytes. A size is the full capacity of a buffer, terminator included;
// what does not fit is cut, never written. A null text stands for "no text", and what each function
// then answers is said beside it; only where "not null" is said there must be one.
#pragma once

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

constexpr int path_size = 256;  // a path buffer
constexpr int line_size = 1000; // a line, an answer, a value or a message

// --- Memory and ownership --------------------------------------------------------------------

// Ends the program at once, with a word on standard error: what cannot be remembered must not be
// taken for something that was never there. All but the growing of tables, and sadd, ends so.
[[noreturn]] void out_of_memory();

// Deletes through a module's own releasing function, which takes the address of the pointer.
template <auto release> struct Releaser {
    template <typename T> void operator()(T *owned) const { release(&owned); }
};

// Owns a T from the line that makes it to the end of its scope: Owned<Log, log_free>.
template <typename T, auto release> using Owned = std::unique_ptr<T, Releaser<release>>;

// Releases a heap text and clears the caller's pointer; null is fine.
void text_free(char **text);

using Text = Owned<char, text_free>;

// Owns an open file by its number; one below 0 stands for none.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(Descriptor &&other) noexcept : number(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() { close(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool is_open() const { return number >= 0; }
    int get() const { return number; }

    // Hands the number over to the caller, who closes it.
    int release() { return std::exchange(number, -1); }

    // False, with errno set, when what was written may not have reached the file. Where none is
    // open there is nothing to do.
    bool close();

  private:
    int number = -1;
};

// A module's last error, kept as text for whoever asks.
class LastError {
  public:
    const char *text() const { return kept ? kept.get() : ""; }
    void set(const char *message);

  private:
    Text kept;
};

// Enlarges a table of plain records by `extra` zeroed ones. Returns false, with the table as it
// was, when memory is short. The table was null or came from here; it is released with free.
template <typename T> [[nodiscard]] bool grow_table(T *&table, size_t used, size_t extra)
{
    static_assert(std::is_trivially_copyable_v<T>);
    void *larger = std::realloc(table, (used + extra) * sizeof(T));
    if (!larger)
        return false;
    table = static_cast<T *>(larger);
    for (size_t slot = used; slot < used + extra; slot++)
        table[slot] = T{};
    return true;
}

// Keeps errno as it is to the end of its scope: what goes wrong in there must not become the reason
// for something else.
class ErrnoKeeper {
  public:
    ErrnoKeeper() : kept(errno) {}
    ~ErrnoKeeper() { errno = kept; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

  private:
    int kept;
};

// --- Null-tolerant wrappers -----------------------------------------------------------------

// Folds the 26 upper-case ASCII letters to lower case; every other byte stands for itself.
extern const unsigned char charmap[256];

// The number that the text begins with, as atoi reads it; 0 for null.
int s_atoi(const char *text);

// strcmp; -1 when either text is null, also when both are.
int s_strcmp(const char *a, const char *b);

// As s_strcmp with ASCII letters folded: the difference of the first folded characters that
// differ, 0 for equal texts, -1 when either is null.
int s_stricmp(const char *a, const char *b);

// Cuts white space at both ends, in place. Returns the first remaining character, inside the
// caller's buffer; null for null.
char *s_strtrm(char *text);

// strstr; null when either text is null.
const char *s_strstr(const char *haystack, const char *needle);

// A heap copy, released with free; null for null.
[[nodiscard]] char *s_strdup(const char *text);

// Replaces the heap text that `owned` points at by a copy of `text` (null clears it). The copy is
// made first, so `text` may be part of the old one.
void s_assign(char **owned, const char *text);

// --- Bounded copies -------------------------------------------------------------------------

// Copies at most size - 1 characters and terminates. Returns how many were copied. A null source
// empties the destination; a null destination or a size below 1 does nothing and gives 0.
int scpy(char *destination, const char *source, int size);

// Appends. The result holds at most size - 2 characters, one fewer than scpy allows: a margin that
// callers rely on. A text that is longer already is cut to size - 1. Returns the new length; 0,
// with nothing done, for nulls and a size below 1.
int scat(char *destination, const char *source, int size);

// Copies the leading characters up to the first one out of `delimiters` (not null), at most size -
// 1 (a size of 0 sets no limit). Returns how many were copied; 0 for a null source or destination.
unsigned schunk(const char *source, const char *delimiters, char *destination, unsigned size);

// Inserts the prefix in front of the text when both together are shorter than size, and returns
// the text; otherwise, and for nulls, null with nothing changed.
char *spre(char *text, const char *prefix, unsigned size);

// Writes the source with every occurrence of the search text replaced (there is none of an empty
// one), scanned left to right, cut to size - 1 characters. A null replacement is empty. Returns the
// destination, or null for a null source or search.
char *sreplace(const char *source, const char *search, const char *replacement, char *destination,
               unsigned size);

// A new heap buffer of n + 1 bytes with the first n - 1 characters of the source, released with
// free. Null for a null source or n = 0.
[[nodiscard]] char *smake(const char *source, unsigned n);

// Appends to a heap text, which may be null, and returns the text that replaces it. A null
// addition, or short memory, leaves the text as it was.
[[nodiscard]] char *sadd(char *text, const char *addition);

template <int size> int scpy(char (&destination)[size], const char *source)
{
    return scpy(destination, source, size);
}

template <int size> int scat(char (&destination)[size], const char *source)
{
    return scat(destination, source, size);
}

// A text growing in a caller's buffer; what does not fit is cut, and it is always terminated.
class BoundedText {
  public:
    BoundedText(char *buffer, size_t size) : text(buffer), capacity(size) { text[0] = '\0'; }

    size_t length() const { return used; }
    size_t room() const { return capacity - 1 - used; }
    bool is_cut() const { return cut; } // true when anything did not fit

    void append(std::string_view addition);

    // Appends what sreplace writes; the texts are not null.
    void append_replaced(const char *source, const char *search, const char *replacement);

  private:
    char *text;
    size_t capacity; // at least 1
    size_t used = 0;
    bool cut = false;
};

// --- Truth words ----------------------------------------------------------------------------

// 1 for "true", "yes", "y", "on", "checked", "selected" in any case or a number other than 0.
int istrue(const char *text);

// 1 for "false", "no", "n", "off" in any case or a zero whose first or second character is a digit.
// A text can be neither true nor false.
int isfalse(const char *text);

// --- The formatter --------------------------------------------------------------------------

// printf without length modifiers; a null text prints as "(NULL)". Returns the number of
// characters written, terminated, or -1 with the buffer full and not terminated when the output
// reached size. 0, with nothing written, for a null buffer or format.
[[gnu::format(printf, 3, 0)]] int vplp_snprintf(char *buffer, unsigned size, const char *format,
                                                va_list arguments);

[[gnu::format(printf, 3, 4)]] int plp_snprintf(char *buffer, unsigned size, const char *format,
                                               ...);

// As plp_snprintf, but always terminated: output that was cut gives size - 1.
[[gnu::format(printf, 3, 4)]] int lprintf(char *buffer, unsigned size, const char *format, ...);

// lprintf for a caller that holds an argument list. A null format gives an empty text.
[[gnu::format(printf, 3, 0)]] int vlprintf(char *buffer, unsigned size, const char *format,
                                           va_list arguments);

// A message of at most 999 characters with the reason for a failure behind it.
constexpr int reasoned_size = line_size + 256;

// Formats a message and puts ", " and the reason behind it; null: no reason is known.
[[gnu::format(printf, 3, 0)]] void vformat_reasoned(char (&text)[reasoned_size], const char *reason,
                                                    const char *format, va_list arguments);

// --- Paths ----------------------------------------------------------------------------------

// The separator that is written; '/' and '\' are both read as one.
extern const char Sep;

constexpr bool is_separator(char c)
{
    return c == '/' || c == '\\';
}

// The part of the path after its last separator, or the whole path; null for null.
const char *last_component(const char *path);

// Splits off the file name into the buffer (null: thrown away) and ends the path at its last
// separator; without one the path becomes "". Returns the path; null for null.
char *strip_file(char *path, char *buffer, int size);

// Removes everything up to and including the last separator. Returns the path; null for null.
char *strip_path(char *path);

// Cuts the path at the last '.' of its file name, unless that is the first character of the whole
// text. Returns the path; null for null.
char *strip_ext(char *path);

// Copies what follows the first '.' of the file name, and returns its length. Without a '.' the
// buffer is untouched and the result is 0, as it is for nulls.
int get_ext(char *buffer, const char *path, int size);

// Joins a name to the directory in `result` with one separator and writes every separator as Sep;
// cut to size - 1 characters. Returns the result; null when it is null or empty, or size is 0.
char *attach_path(char *result, const char *name, unsigned size);

// Appends an extension (not null) that carries its own '.', cut to size - 1 characters. Returns the
// result; null for a null result or size 0.
char *attach_ext(char *result, const char *extension, unsigned size);

template <unsigned size> char *attach_path(char (&result)[size], const char *name)
{
    return attach_path(result, name, size);
}

template <unsigned size> char *attach_ext(char (&result)[size], const char *extension)
{
    return attach_ext(result, extension, size);
}

// Joins a directory and the name of an entry in it (not null), both as they stand: a backslash is
// part of a name on disk. False when the whole path does not fit: a cut one would name something
// else.
bool join_path(char (&result)[path_size], const char *directory, const char *name);

// Writes every separator in the text (not null) as the given character. Returns the text.
char *setsep(char *text, char separator);

// The program's own name: the last component of its first argument, cut at its first '.'.
// Returns the buffer; null for nulls.
char *exename(char *buffer, const char *argument, int size);

// The working directory. Returns the buffer; null for null or when the system does not tell.
char *currentdir(char *buffer, int size);

// The system's configuration directory. Returns the buffer; null for null.
char *systemdir(char *buffer, int size);

// --- Wildcards ------------------------------------------------------------------------------

// 1 when the whole text matches the pattern: '*' is any run of characters, '?' any one character.
// Directly after a '*' the next pattern character is searched for literally, so a '?' there finds
// only a question mark. 0 for nulls.
int wmatch(const char *text, const char *pattern, int case_sensitive);

// wmatch with case; the pattern "*" matches at once.
int wild_match(const char *text, const char *pattern);

// 1 when any text of the first list matches any pattern of the second. Lists are divided by
// spaces, tabs and commas. 0 for null and empty lists.
int wild_list(const char *texts, const char *patterns);

// wild_list without regard to the case of ASCII letters.
int wild_ilist(const char *texts, const char *patterns);

// --- Tables of words -----------------------------------------------------------------------

// The row whose word equals a text as `compare` sees it; null when there is none.
template <typename Row, size_t rows>
const Row *find_word(const Row (&table)[rows], const char *text,
                     int (*compare)(const char *, const char *))
{
    for (const Row &row : table)
        if (compare(row.word, text) == 0)
            return &row;
    return nullptr;
}

// A row by number, and its word; null behind the last.
template <typename Row, size_t rows> const Row *row_at(const Row (&table)[rows], unsigned number)
{
    return number < rows ? &table[number] : nullptr;
}

template <typename Row, size_t rows> const char *word_at(const Row (&table)[rows], unsigned number)
{
    return number < rows ? table[number].word : nullptr;
}

// --- Files of text --------------------------------------------------------------------------

// fopen; null for nulls.
[[nodiscard]] FILE *s_fopen(const char *path, const char *mode);

// Closes the stream and clears the caller's pointer; null is fine.
void s_fclose(FILE **stream);

using Stream = Owned<FILE, s_fclose>;

// Open a file of text: for reading (a device or a pipe that is not empty, and may never end, is
// refused); created or emptied for writing; for appending. Unlike s_fopen they never wait at a
// FIFO; writing to one does. Null when it cannot be opened.
[[nodiscard]] FILE *open_text(const char *path);
[[nodiscard]] FILE *create_text(const char *path);
[[nodiscard]] FILE *append_text(const char *path);

// Closes a stream that was written. Returns false, with errno set, when any of its data may not
// have reached the file.
[[nodiscard]] bool close_written(Stream &stream);

// The rest of a stream as one heap text, released with free; null when there is none.
[[nodiscard]] char *read_text(FILE *stream);

// The next field of a line (*rest may be null), in place: leading blanks and tabs are skipped, the
// field is ended at the one that follows it and *rest moves behind that. Null, with *rest null,
// when none is left.
char *next_field(char **rest);

// The name in a line that is a section's header, changed in place; null for any other line. It is
// what follows the '[', without a ']' that ends the line.
char *section_name(char *line);

// Reads a text file in pieces of at most 999 characters, a longer line coming as several.
class LineReader {
  public:
    explicit LineReader(const char *path) : stream(open_text(path)) {}

    bool is_open() const { return stream != nullptr; }

    // True when reading ended on an error rather than at the end; errno then holds the reason.
    bool failed() const { return stream && std::ferror(stream.get()); }

    // The next line, trimmed, also when it is empty; null at the end. Valid until the next call.
    char *next();

    // The next line that is neither empty nor a comment beginning with '#'; null at the end.
    char *next_content();

    // About what was returned last: the number of its line in the file, from 1 on; whether the line
    // goes on behind it, in a piece that has the same number.
    unsigned number() const { return line_number; }
    bool is_cut() const { return cut; }

  private:
    void look_behind_piece();

    Stream stream;
    char line[line_size] = "";
    unsigned line_number = 0;
    bool at_line_start = true; // of the file, not of a piece
    bool cut = false;
};

// Reads the lines of one [section] of a text file. Section names are compared without regard to
// case; the next header ends the section.
class SectionReader {
  public:
    SectionReader(const char *path, const char *wanted) : reader(path), section(wanted) {}

    bool is_open() const { return reader.is_open(); }
    bool failed() const { return reader.failed(); }
    bool found() const { return place != before; }

    // The next line with content inside the section; null at its end.
    char *next();

    // As those of LineReader.
    unsigned number() const { return reader.number(); }
    bool is_cut() const { return reader.is_cut(); }

  private:
    enum Place { before, inside, after };

    LineReader reader;
    const char *section;
    Place place = before;
};

// --- The terminal ---------------------------------------------------------------------------

// Prints to standard output through the formatter, at most 1999 characters, which are shown at
// once. What cannot be shown is lost; errno is left as it was.
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...);

// What reading a line came to.
enum class Input {
    line,  // one that may lack its end, where the input ended in it
    end,   // of the input, with the buffer untouched
    error, // told by errno; what is in the buffer is no answer
};

// Reads one line of standard input, without its end, cut at size - 1 characters: the rest of a
// longer line is thrown away. Waits for it also where the terminal was told not to.
[[nodiscard]] Input read_input(char *buffer, int size);

// True once a read has met the end of standard input or an error: from then on nobody answers.
bool input_ended();
