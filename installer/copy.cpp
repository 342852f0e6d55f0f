#include "copy.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "array.h"
#include "ini.h"
#include "lib.h"
#include "log.h"

namespace {

LastError last_copy_error;

constexpr unsigned more_commands = 5;

// --- The commands ----------------------------------------------------------------------------

using RunFn = int (*)(pCopy x, unsigned index, unsigned long *bytes);

struct command_word {
    const char *word;
    CType type;
    unsigned fields;
    RunFn run;
};

int copy_matches(pCopy x, unsigned index, unsigned long *bytes);
int remove_matches(pCopy x, unsigned index, unsigned long *bytes);
int make_directories(pCopy x, unsigned index);

template <int (*command)(pCopy, unsigned)> int plain(pCopy x, unsigned index, unsigned long *)
{
    return command(x, index);
}

// Meant: when one of these fails its fields are tried as a copy, which as a rule has no destination
// directories and says so.
template <int (*command)(pCopy, unsigned)>
int or_copied(pCopy x, unsigned index, unsigned long *bytes)
{
    return command(x, index) ? 1 : copy_matches(x, index, bytes);
}

constexpr unsigned source_and_dest = needs_source | needs_dest;
constexpr unsigned source_not_dest = needs_source | needs_not | needs_dest;

constexpr command_word command_words[] = {
    {"CopyFile", CpyFile, source_not_dest, copy_matches},
    {"CopyDir", CpyDir, source_not_dest, copy_matches},
    {"MkDir", MkDir, needs_source, or_copied<make_directories>},
    {"Ini", CpyIni, source_and_dest, or_copied<copy_write_ini>},
    {"Rename", Rename, source_and_dest, or_copied<copy_rename>},
    {"RmFile", RmFile, needs_source | needs_not, remove_matches},
    {"RmDir", RmDir, needs_source | needs_not, remove_matches},
    {"Exist", Exist, source_and_dest, plain<copy_exist>},
    {"Chown", Chown, source_not_dest, plain<copy_chown>},
    {"Chmod", Chmod, source_not_dest, plain<copy_chmod>},
    {"Error", Error, needs_source | has_message, plain<copy_seterror>},
    {"WFile", WFile, source_and_dest, plain<copy_wfile>},
    {"RFile", RFile, source_and_dest, plain<copy_rfile>},
};

const copy_cmd *command_at(const copy *x, unsigned index)
{
    return x && index < x->count ? &x->list[index] : nullptr;
}

// --- Loading ---------------------------------------------------------------------------------

void release_commands(pCopy x)
{
    for (unsigned index = 0; index < x->count; index++)
        copy_release(x->list[index]);
    std::free(x->list);
    x->list = nullptr;
    x->count = 0;
}

void set_field(char **place, const char *name, const char *field)
{
    if (!field)
        return;
    s_assign(place, field);
    dmsg("Copy line '%s' is [%s]", name, field);
}

// Takes a mandatory field; false, logged, when it is missing.
bool take_field(char **line, char **place, const char *name, const char *missing)
{
    const char *field = next_field(line);
    set_field(place, name, field);
    if (!field)
        cerror("%s", missing);
    return field != nullptr;
}

unsigned take_type(char **line, copy_cmd &command)
{
    unsigned fields = source_not_dest;
    const char *word = next_field(line);
    if (const command_word *known = find_word(command_words, word, s_stricmp)) {
        command.type = known->type;
        fields = known->fields;
    } else {
        cerror("Unknown copy type '%s'", word);
    }
    dmsg("Copy line 'type' is [%d]", static_cast<int>(command.type));
    return fields;
}

// Loads one line. The slot of a dropped one keeps its type, which an unknown word there takes over.
bool add_command(pCopy x, char *line, unsigned &capacity)
{
    dmsg("Process .cpy file line [%s]", line);
    if (x->count == capacity) {
        if (!grow_table(x->list, capacity, more_commands)) {
            emsg("Memory allocation error");
            return false;
        }
        capacity += more_commands;
    }
    copy_cmd &command = x->list[x->count];
    if (!copy_parse(line, command)) {
        copy_release(command);
        return true;
    }
    x->count++;
    if (x->ini)
        copy_processpaths(x, static_cast<int>(x->count) - 1);
    return true;
}

} // namespace

const char *copy_word(unsigned number)
{
    return word_at(command_words, number);
}

CType copy_word_type(unsigned number)
{
    const command_word *row = row_at(command_words, number);
    return row ? row->type : CType{};
}

unsigned copy_word_fields(unsigned number)
{
    const command_word *row = row_at(command_words, number);
    return row ? row->fields : 0;
}

bool copy_parse(char *line, copy_cmd &command)
{
    const unsigned fields = take_type(&line, command);
    // Those behind a missing one are missing, too.
    bool complete = take_field(&line, &command.source, "source", "Missing copy source path");
    if (fields & needs_not)
        complete = take_field(&line, &command.not_, "not", "Missing not wildcard");
    if (fields & needs_dest)
        complete = take_field(&line, &command.dest, "destination", "Missing copy destination path");
    if (!complete)
        return false;
    if (fields & has_message) {
        s_assign(&command.dest, line);
        dmsg("Copy list error string is '%s'", command.dest);
    } else {
        set_field(&command.control, "control", next_field(&line));
        set_field(&command.control_cmp, "control_cmp", next_field(&line));
    }
    return true;
}

void copy_release(copy_cmd &command)
{
    for (char **text :
         {&command.source, &command.dest, &command.not_, &command.control, &command.control_cmp})
        text_free(text);
}

pCopy copy_init(Ini *ini)
{
    return new copy{.list = nullptr, .ini = ini, .count = 0};
}

void copy_setup(pCopy, FileFn ok, FileFn fail)
{
    file_setup_fn(ok, fail);
}

int copy_load(pCopy x, const char *file, const char *section)
{
    if (!x || !file || !section)
        return 0;
    release_commands(x);
    errno = 0;
    SectionReader reader(file, section);
    if (!reader.is_open()) {
        cerror("Error opening '%s'", file);
        return 0;
    }
    unsigned capacity = 0;
    while (char *line = reader.next())
        if (!add_command(x, line, capacity))
            return 0;
    // Half of a script must not run.
    if (reader.failed()) {
        cerror("Error reading '%s'", file);
        return 0;
    }
    return reader.found();
}

void copy_processpaths(pCopy x, int index)
{
    if (!command_at(x, static_cast<unsigned>(index)))
        return;
    copy_cmd &command = x->list[index];
    if (s_strcmp(command.not_, "-") == 0)
        text_free(&command.not_);
    for (char **field : {&command.source, &command.dest}) {
        if (char *filled = replace_vars(x, *field)) {
            std::free(*field);
            *field = filled;
        }
    }
}

char *replace_vars(const copy *x, const char *string)
{
    constexpr size_t result_size = 10000;
    constexpr size_t part_most = 8999;
    Reference reference;
    if (!x || !string || !find_reference(string, reference))
        return nullptr;
    char result[result_size];
    BoundedText filled(result, result_size);
    do {
        filled.append({string, static_cast<size_t>(reference.begin - string)});
        if (!reference.end) {
            // Meant: a reference that is not closed ends the text and loses its last character.
            filled.append({reference.begin, std::strlen(reference.begin) - 1});
            return s_strdup(result);
        }
        string = reference.end;
        if (const char *value = ini_value_name(x->ini, reference.name))
            filled.append({value, ::strnlen(value, part_most)});
        else
            filled.append({reference.begin, static_cast<size_t>(reference.end - reference.begin)});
    } while (find_reference(string, reference));
    filled.append({string, ::strnlen(string, part_most)});
    return s_strdup(result);
}

unsigned copy_count(const copy *x)
{
    return x ? x->count : 0;
}

namespace {

const char *text_at(const copy *x, unsigned index, char *copy_cmd::*field)
{
    const copy_cmd *command = command_at(x, index);
    return command ? command->*field : nullptr;
}

int is_type(const copy *x, unsigned index, CType type)
{
    const copy_cmd *command = command_at(x, index);
    return command && command->type == type;
}

} // namespace

const char *copy_src(const copy *x, unsigned index)
{
    return text_at(x, index, &copy_cmd::source);
}

const char *copy_dst(const copy *x, unsigned index)
{
    return text_at(x, index, &copy_cmd::dest);
}

const char *copy_not(const copy *x, unsigned index)
{
    return text_at(x, index, &copy_cmd::not_);
}

const char *copy_control(const copy *x, unsigned index)
{
    return text_at(x, index, &copy_cmd::control);
}

const char *copy_control_cmp(const copy *x, unsigned index)
{
    return text_at(x, index, &copy_cmd::control_cmp);
}

int copy_cpyfile(const copy *x, unsigned index)
{
    return is_type(x, index, CpyFile);
}

int copy_cpydir(const copy *x, unsigned index)
{
    return is_type(x, index, CpyDir);
}

int copy_mkdir(const copy *x, unsigned index)
{
    return is_type(x, index, MkDir);
}

int copy_rmdir(const copy *x, unsigned index)
{
    return is_type(x, index, RmDir);
}

int copy_rmfile(const copy *x, unsigned index)
{
    return is_type(x, index, RmFile);
}

int copy_ini(const copy *x, unsigned index)
{
    return is_type(x, index, CpyIni);
}

// --- Splitting a field -----------------------------------------------------------------------

namespace {

char *directory_part(const char *field, char *buffer, unsigned bfsz)
{
    if (!field || !buffer || bfsz == 0)
        return nullptr;
    const auto length = static_cast<int>(last_component(field) - field);
    if (length == 0)
        return currentdir(buffer, static_cast<int>(bfsz));
    lprintf(buffer, bfsz, "%.*s", length, field);
    return buffer;
}

char *last_part(const char *text, char *buffer, unsigned bfsz)
{
    if (!text || !buffer || bfsz == 0)
        return nullptr;
    scpy(buffer, text, static_cast<int>(bfsz));
    return buffer;
}

// A pattern and the directory to look for it in.
struct Pattern {
    char directory[path_size];
    char wild[path_size];
};

// True when both parts of a field fit: cut, they would name something else. Otherwise logged.
bool fits_pattern(const char *field)
{
    const char *name = last_component(field);
    if (name - field < path_size && std::strlen(name) < path_size)
        return true;
    errno = ENAMETOOLONG;
    cerror("Error opening dir '%s'", field);
    return false;
}

bool source_pattern(const copy *x, unsigned index, Pattern &pattern)
{
    const char *field = copy_src(x, index);
    if (!field || !fits_pattern(field))
        return false;
    copy_src_file(x, index, pattern.wild, path_size);
    // The working directory is there even when its path does not fit.
    if (!copy_src_path(x, index, pattern.directory, path_size))
        scpy(pattern.directory, ".");
    return true;
}

bool destination_pattern(const copy *x, unsigned index, Pattern &pattern)
{
    return copy_dst_file(x, index, pattern.wild, path_size) && fits_pattern(copy_dst(x, index)) &&
           copy_dst_path(x, index, pattern.directory, path_size);
}

} // namespace

char *copy_src_path(const copy *x, unsigned index, char *buffer, unsigned bfsz)
{
    return directory_part(copy_src(x, index), buffer, bfsz);
}

char *copy_src_file(const copy *x, unsigned index, char *buffer, unsigned bfsz)
{
    const char *field = copy_src(x, index);
    const char *name = last_component(field);
    // An empty field names nothing, least of all everything in the working directory.
    return last_part(name && name != field && !*name ? "*" : name, buffer, bfsz);
}

char *copy_dst_path(const copy *x, unsigned index, char *buffer, unsigned bfsz)
{
    return directory_part(copy_dst(x, index), buffer, bfsz);
}

char *copy_dst_file(const copy *x, unsigned index, char *buffer, unsigned bfsz)
{
    const char *field = copy_dst(x, index);
    const char *name = last_component(field);
    return name == field || !*name ? nullptr : last_part(name, buffer, bfsz);
}

// --- Running ---------------------------------------------------------------------------------

namespace {

// Whether the controlling setting lets a command run. Unlike questions, texts are compared here
// without regard to case.
bool is_wanted(const copy_cmd &command, Ini *ini)
{
    // Both are looked up in any case: a look-up decides where a later value goes.
    const char *control = ini_value_name(ini, command.control);
    const char *compare = ini_value_name(ini, command.control_cmp);
    if (!control)
        return true;
    if (!compare)
        compare = command.control_cmp;
    return compare ? s_stricmp(control, compare) == 0 : istrue(control);
}

const char *or_empty(const char *text)
{
    return text ? text : "";
}

using Destinations = Owned<Array, array_free_dealloc>;

Destinations find_destinations(const copy *x, unsigned index)
{
    Destinations found(array_init(0));
    Pattern pattern;
    if (!destination_pattern(x, index, pattern))
        return found;
    for (Scan scan(pattern.directory, pattern.wild); scan.entry(); scan.next()) {
        const Entry &entry = *scan.entry();
        if (is_directory(entry) && !wild_ilist(entry.name, copy_not(x, index)))
            array_keep(found.get(), s_strdup(entry.path));
    }
    return found;
}

int copy_into(const copy *x, unsigned index, const char *directory, unsigned long *bytes)
{
    const copy_cmd &command = x->list[index];
    Pattern pattern;
    if (!source_pattern(x, index, pattern))
        return 0;
    Scan scan(pattern.directory, pattern.wild);
    if (!scan.entry())
        imsg("No files found to copy in '%s' matching '%s'", pattern.directory, pattern.wild);
    int count = 0;
    for (; scan.entry(); scan.next()) {
        const Entry &entry = *scan.entry();
        if ((is_directory(entry) && command.type != CpyDir) || wild_ilist(entry.name, command.not_))
            continue;
        count += file_xcopy(scan, command.not_, directory, bytes);
    }
    return count;
}

int copy_matches(pCopy x, unsigned index, unsigned long *bytes)
{
    const Destinations destinations = find_destinations(x, index);
    if (destinations->items == 0)
        cerror("No destination directories found");
    int count = 0;
    for (int item = 0; item < destinations->items; item++)
        count += copy_into(x, index, array_item<char>(destinations.get(), item), bytes);
    return count;
}

int remove_matches(pCopy x, unsigned index, unsigned long *)
{
    const copy_cmd &command = x->list[index];
    Pattern pattern;
    if (!source_pattern(x, index, pattern))
        return 0;
    int count = 0;
    for (Scan scan(pattern.directory, pattern.wild); scan.entry(); scan.next()) {
        const Entry &entry = *scan.entry();
        if (wild_ilist(entry.name, command.not_))
            continue;
        if (!is_directory(entry))
            count += file_remove(scan);
        else if (command.type == RmDir)
            count += file_rmdir(scan, command.not_);
    }
    return count;
}

int make_directories(pCopy x, unsigned index)
{
    return file_mkdir(copy_src(x, index), 1);
}

} // namespace

int copy_process(pCopy x, unsigned long *files, unsigned long *bytes, int stop_on_fail)
{
    if (!x)
        return 0;
    unsigned long uncounted = 0;
    if (!files)
        files = &uncounted;
    *files = 0;
    if (bytes)
        *bytes = 0;
    imsg("Processing copy script...");
    for (unsigned index = 0; index < x->count; index++) {
        const copy_cmd &command = x->list[index];
        dmsg("Processing [%d:%s->%s,%s,%s,%s]", static_cast<int>(command.type),
             or_empty(command.source), or_empty(command.dest), or_empty(command.not_),
             or_empty(command.control), or_empty(command.control_cmp));
        const int done = copy_do(x, index, bytes);
        if (done > 0)
            *files += static_cast<unsigned long>(done);
        if (done != 0)
            continue;
        if (stop_on_fail) {
            imsg("Stop on fail set, stopping...");
            return 0;
        }
        imsg("Stop on fail NOT set, continuing...");
    }
    imsg("Copy script completed successfully");
    return 1;
}

int copy_do(pCopy x, unsigned index, unsigned long *bytes)
{
    const copy_cmd *command = command_at(x, index);
    if (!command)
        return 0;
    errno = 0;
    if (!is_wanted(*command, x->ini)) {
        dmsg("Doing nothing due to controlling setting");
        return -1;
    }
    for (const command_word &row : command_words)
        if (row.type == command->type)
            return row.run(x, index, bytes);
    cerror("How did we get here!");
    return 0;
}

// --- Owners and modes ------------------------------------------------------------------------

namespace {

// The words of a walk in the log.
struct WalkWords {
    const char *verb;
    const char *excluded; // behind "Not"
    const char *finished; // behind "Finished"
};

constexpr WalkWords chown_words = {"chown", "chown'ing", "chown'ing"};
constexpr WalkWords chmod_words = {"chmod", "chmod'ding", "chmod'ing"};

void log_found(const WalkWords &words, const Scan &scan, const char *not_list)
{
    if (!scan.entry())
        dmsg("No files found to %s", words.verb);
    else if (not_list)
        dmsg("Found files to %s, not doing '%s'", words.verb, not_list);
    else
        dmsg("Found files to %s, doing all of them", words.verb);
}

template <typename Change>
int change_level(Scan &scan, const char *not_list, const WalkWords &words, Change change);

// Changes the current entry, what is in it first, and adds to the count. False when that failed;
// one that has gone is no failure.
template <typename Change>
bool change_entry(const Scan &scan, const char *not_list, const WalkWords &words, Change change,
                  int &count)
{
    int done = 0;
    if (is_directory(*scan.entry())) {
        Scan level = scan.below();
        if (level.is_lost())
            return true;
        count += change_level(level, not_list, words, change);
        done = change(scan, &level);
    } else {
        done = change(scan, nullptr);
    }
    count += done > 0;
    return done != 0;
}

// The first entry that cannot be changed ends its level.
template <typename Change>
int change_level(Scan &scan, const char *not_list, const WalkWords &words, Change change)
{
    int count = 0;
    log_found(words, scan, not_list);
    for (; scan.entry(); scan.next()) {
        if (wild_ilist(scan.entry()->path, not_list)) {
            dmsg("Not %s '%s'", words.excluded, scan.entry()->path);
        } else if (!change_entry(scan, not_list, words, change, count)) {
            emsg("file_%s failed", words.verb);
            break;
        }
    }
    dmsg("Finished %s, %d files done", words.finished, count);
    return count;
}

template <typename Change>
int change_matches(const char *path, const char *wild, const char *not_list, const WalkWords &words,
                   Change change)
{
    if (!path || !wild)
        return 0;
    Scan scan(path, wild);
    return change_level(scan, not_list, words, change);
}

// Splits "user:group"; without a group the user's name serves as one.
void split_owner(const char *owner, char (&user)[line_size], char (&group)[line_size])
{
    const unsigned length = schunk(owner, ":", user, line_size);
    scpy(group, owner[length] == ':' ? owner + length + 1 : owner);
}

// Every character counts, so that only octal digits give a meaningful mode.
mode_t octal_mode(const char *text)
{
    mode_t mode = 0;
    for (; *text; text++)
        mode = mode * 8 + static_cast<mode_t>(*text - '0');
    return mode;
}

} // namespace

int copy_chown(pCopy x, unsigned index)
{
    Pattern pattern;
    const char *dest = copy_dst(x, index);
    if (!dest || !source_pattern(x, index, pattern))
        return 0;
    char owner[line_size];
    scpy(owner, dest);
    ini_replace(x->ini, dest, owner, line_size - 1);
    char user[line_size];
    char group[line_size];
    split_owner(owner, user, group);
    const int uid = file_getuid(user);
    dmsg("Found user id for '%s'=%d", user, uid);
    const int gid = file_getgid(group);
    dmsg("Found group id for '%s'=%d", group, gid);
    return dochown(pattern.directory, pattern.wild, copy_not(x, index), static_cast<uid_t>(uid),
                   static_cast<gid_t>(gid));
}

int copy_chmod(pCopy x, unsigned index)
{
    Pattern pattern;
    const char *dest = copy_dst(x, index);
    if (!dest || !source_pattern(x, index, pattern))
        return 0;
    return dochmod(pattern.directory, pattern.wild, copy_not(x, index), octal_mode(dest));
}

int dochown(const char *path, const char *file, const char *not_list, uid_t uid, gid_t gid)
{
    return change_matches(path, file, not_list, chown_words, [=](const Scan &scan, const Scan *) {
        return file_chown(scan, uid, gid);
    });
}

int dochmod(const char *path, const char *file, const char *not_list, mode_t mode)
{
    return change_matches(
        path, file, not_list, chmod_words,
        [=](const Scan &scan, const Scan *level) { return file_chmod(scan, level, mode); });
}

// --- Settings files, markers and the rest ----------------------------------------------------

namespace {

// Lines with references are written trimmed, others with their leading white space.
void write_line(const copy *x, char *line, FILE *to)
{
    const Text filled(replace_vars(x, s_strtrm(line)));
    std::fputs(filled ? filled.get() : line, to);
    std::fputc('\n', to);
}

bool fill_template(const copy *x, FILE *from, FILE *to)
{
    char line[3 * line_size + 1];
    while (!std::ferror(to) && std::fgets(line, static_cast<int>(std::size(line)), from))
        write_line(x, line, to);
    return !std::ferror(from);
}

} // namespace

int copy_write_ini(pCopy x, unsigned index)
{
    const copy_cmd *command = command_at(x, index);
    if (!command || !command->source || !command->dest)
        return 0;
    // Opening the destination empties it: not a good thing to do for a template without content, or
    // to one's own template. (The null device is an empty template.)
    const mode_t mode = file_mode(command->source);
    if (mode && !S_ISREG(mode) && !S_ISCHR(mode)) {
        errno = S_ISDIR(mode) ? EISDIR : ENOTSUP;
        cerror("Error reading ini file '%s'", command->source);
        return 0;
    }
    if (is_same_file(command->source, command->dest)) {
        errno = EINVAL;
        cerror("Error creating ini file '%s'", command->dest);
        return 0;
    }
    errno = 0;
    Stream to(create_text(command->dest));
    if (!to) {
        cerror("Error creating ini file '%s'", command->dest);
        return 0;
    }
    const Stream from(open_text(command->source));
    if (!from) {
        cerror("Error reading ini file '%s'", command->source);
        return 0;
    }
    imsg("Writing INI file '%s' to '%s'", command->source, command->dest);
    if (!fill_template(x, from.get(), to.get())) {
        cerror("Error reading ini file '%s'", command->source);
        return 0;
    }
    if (!close_written(to)) {
        cerror("Error writing ini file '%s'", command->dest);
        return 0;
    }
    return 1;
}

int copy_rename(pCopy x, unsigned index)
{
    const copy_cmd *command = command_at(x, index);
    if (!command || !command->source || !command->dest)
        return 0;
    errno = 0;
    if (std::rename(command->source, command->dest) == 0)
        return 1;
    cerror("Error renaming '%s'->'%s', %s", command->source, command->dest, std::strerror(errno));
    return 0;
}

int copy_exist(pCopy x, unsigned index)
{
    const copy_cmd *command = command_at(x, index);
    if (!command)
        return 0;
    ini_add_name(x->ini, command->dest, file_exist(command->source) ? "true" : "false");
    return 1;
}

int copy_wfile(pCopy x, unsigned index)
{
    const copy_cmd *command = command_at(x, index);
    if (!command || !command->dest)
        return 0;
    errno = 0;
    Stream stream(create_text(command->source));
    if (stream)
        std::fputs(ini_value_or_text(x->ini, command->dest), stream.get());
    if (stream && close_written(stream))
        return 1;
    cerror("Failed to write (%s)", command->source);
    return 0;
}

int copy_rfile(pCopy x, unsigned index)
{
    const copy_cmd *command = command_at(x, index);
    if (!command)
        return 0;
    errno = 0;
    // Meant: the file is opened for writing, which empties it, and nothing can be read from it.
    const Stream stream(create_text(command->source));
    if (!stream) {
        cerror("Failed to read (%s)", command->source);
        return 0;
    }
    const Text text(read_text(stream.get()));
    ini_add_name(x->ini, command->dest, text.get());
    return 1;
}

int copy_seterror(pCopy x, unsigned index)
{
    const copy_cmd *command = command_at(x, index);
    if (!command)
        return 0;
    if (!isfalse(ini_value_name(x->ini, command->source)))
        return 1;
    last_copy_error.set(command->dest);
    return 0;
}

const char *copy_error()
{
    return last_copy_error.text();
}

void cerror(const char *format, ...)
{
    const int reason = errno;
    char message[reasoned_size];
    va_list arguments;
    va_start(arguments, format);
    vformat_reasoned(message, reason != 0 ? std::strerror(reason) : nullptr, format, arguments);
    va_end(arguments);
    emsg("%s", message);
    errno = reason;
}

void copy_free(pCopy *x)
{
    if (!x || !*x)
        return;
    release_commands(*x);
    delete *x;
    *x = nullptr;
}
