#include "init.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>

#include "array.h"
#include "file.h"
#include "ini.h"
#include "lib.h"
#include "log.h"

namespace {

LastError last_init_error;

using PendingItem = Owned<init_item, init_item_free>;

struct probe_word {
    const char *word;
    IItemMode mode;
    void (*run)(const init_item &item, Ini *ini);
};

// --- Commands --------------------------------------------------------------------------------

void run_exist(const init_item &item, Ini *ini)
{
    char path[path_size] = "";
    ini_replace(ini, item.a, path, path_size);
    ini_add_name(ini, item.b, file_exist(path) ? "true" : "false");
}

void run_copy(const init_item &item, Ini *ini)
{
    ini_add_name(ini, item.a, ini_value_or_text(ini, item.b));
}

void run_http(const init_item &item, Ini *ini)
{
    char value[line_size] = "";
    char reason[line_size] = "";
    const auto wanted = [&](IItemMode mode) { return item.mode == mode ? value : nullptr; };
    if (init_find_http_conf(wanted(IHTTP_User), wanted(IHTTP_Group), wanted(IHTTP_Root),
                            wanted(IHTTP_Scripts), reason)) {
        ini_add_name(ini, item.a, value);
        return;
    }
    say("ERROR: %s\n", reason);
    ini_add_name(ini, item.b, "true");
}

// Its format is the author's, so that the compiler cannot check it.
constexpr size_t (*print_time)(char *text, size_t size, const char *format,
                               const struct tm *time) = std::strftime;

void run_time_date(const init_item &item, Ini *ini)
{
    const char *format = ini_value_name(ini, item.a);
    if (!format) {
        emsg("TimeDate '%s' is NULL", item.a);
        return;
    }
    const time_t now = std::time(nullptr);
    struct tm local {};
    ::localtime_r(&now, &local);
    char text[line_size];
    // Nothing is written when the result does not fit or is empty.
    if (print_time(text, line_size, format, &local) == 0)
        text[0] = '\0';
    ini_add_name(ini, item.b, text);
}

void run_write_file(const init_item &item, Ini *ini)
{
    char path[path_size] = "";
    ini_replace(ini, item.a, path, path_size);
    Stream stream(create_text(path));
    if (stream)
        std::fputs(ini_value_or_text(ini, item.b), stream.get());
    if (!stream || !close_written(stream))
        emsg("Failed to write (%s), %s", path, std::strerror(errno));
}

void run_read_file(const init_item &item, Ini *ini)
{
    char path[path_size] = "";
    ini_replace(ini, item.a, path, path_size);
    const Stream stream(open_text(path));
    const Text text(stream ? read_text(stream.get()) : nullptr);
    // Half of a value is worse than none.
    if (!stream || std::ferror(stream.get()))
        emsg("Failed to read (%s), %s", path, std::strerror(errno));
    else
        ini_add_name(ini, item.b, text.get());
}

constexpr probe_word probe_words[] = {
    {"Exist", IExist, run_exist},           {"Copy", ICopy, run_copy},
    {"HTTP_User", IHTTP_User, run_http},    {"HTTP_Group", IHTTP_Group, run_http},
    {"HTTP_Root", IHTTP_Root, run_http},    {"HTTP_Scripts", IHTTP_Scripts, run_http},
    {"TimeDate", ITimeDate, run_time_date}, {"WFile", IWFile, run_write_file},
    {"RFile", IRFile, run_read_file},
};

// --- Loading ---------------------------------------------------------------------------------

void set_mode(init_item &item, const char *word)
{
    if (const probe_word *known = find_word(probe_words, word, s_strcmp))
        item.mode = known->mode;
    else
        emsg("Unknown init command '%s'", word);
}

// "-" leaves the field as it is, so that an item which a short line began keeps what it has.
void set_unless_dash(char **field, const char *text)
{
    if (s_strcmp(text, "-") != 0)
        s_assign(field, text);
}

} // namespace

const char *init_word(unsigned number)
{
    return word_at(probe_words, number);
}

IItemMode init_word_mode(unsigned number)
{
    const probe_word *row = row_at(probe_words, number);
    return row ? row->mode : IItemMode{};
}

bool init_parse(char *line, init_item &item)
{
    set_mode(item, next_field(&line));
    const char *a = next_field(&line);
    if (a)
        s_assign(&item.a, a);
    const char *b = next_field(&line);
    if (b)
        s_assign(&item.b, b);
    const char *control = next_field(&line);
    if (control)
        set_unless_dash(&item.control, control);
    const char *compare = next_field(&line);
    if (compare)
        set_unless_dash(&item.compare, compare);
    return compare != nullptr;
}

pInit init_init()
{
    return new init{.list = array_init(0)};
}

int init_load(pInit script, const char *file)
{
    if (!script || !file)
        return 0;
    errno = 0;
    LineReader reader(file);
    PendingItem pending;
    while (char *line = reader.next_content()) {
        if (!pending)
            pending.reset(new init_item{});
        if (init_parse(line, *pending))
            array_keep(script->list, pending.release());
    }
    if (reader.is_open() && !reader.failed())
        return 1;
    init_seterror("Failed to read '%s', %s", file, std::strerror(errno));
    return 0;
}

const char *init_error()
{
    return last_init_error.text();
}

void init_seterror(const char *format, ...)
{
    char message[line_size];
    va_list arguments;
    va_start(arguments, format);
    vlprintf(message, line_size, format, arguments);
    va_end(arguments);
    last_init_error.set(message);
}

pIItem init_get_num(pInit script, int n)
{
    return script ? static_cast<pIItem>(array_get_num(script->list, n)) : nullptr;
}

pIItem init_get(pInit script)
{
    return script ? static_cast<pIItem>(array_get(script->list)) : nullptr;
}

void init_goto(pInit script, int n)
{
    if (script)
        array_goto(script->list, n);
}

void init_start(pInit script)
{
    if (script)
        array_start(script->list);
}

void init_next(pInit script)
{
    if (script)
        array_next(script->list);
}

void init_prev(pInit script)
{
    if (script)
        array_prev(script->list);
}

bool init_is_wanted(const init_item &item, Ini *ini)
{
    return !item.compare ||
           (item.control && s_strcmp(ini_value_or_text(ini, item.control), item.compare) == 0);
}

void init_run(pInit script, Ini *ini)
{
    for (const init_item *item = init_get_num(script, 0); item; item = init_get(script)) {
        if (!init_is_wanted(*item, ini))
            continue;
        errno = 0;
        for (const probe_word &row : probe_words)
            if (row.mode == item->mode)
                row.run(*item, ini);
    }
}

void init_item_free(pIItem *item)
{
    if (!item || !*item)
        return;
    std::free((*item)->a);
    std::free((*item)->b);
    std::free((*item)->compare);
    std::free((*item)->control);
    delete *item;
    *item = nullptr;
}

void init_free(pInit *script)
{
    if (!script || !*script)
        return;
    array_free_fn(&(*script)->list, [](void **slot) {
        pIItem item = static_cast<pIItem>(*slot);
        init_item_free(&item);
        *slot = nullptr;
    });
    delete *script;
    *script = nullptr;
}

// --- The web server's configuration ----------------------------------------------------------

namespace {

constexpr const char *http_files[] = {
    "/etc/apache/httpd.conf",
    "/etc/httpd/conf/httpd.conf",
    "/etc/httpd/httpd.conf",
    "/usr/local/apache/conf/httpd.conf",
    "/usr/local/httpd/conf/httpd.conf",
    "/usr/local/apache/etc/httpd.conf",
    "/usr/internet/httpd/public/conf/httpd.conf",
    "/opt/apache/conf/httpd.conf",
};

// One thing to know about the web server. What is found once holds for the run.
struct Fact {
    const char *word; // the directive that tells it
    // Takes the fields behind the word; false, with errmsg filled, ends the search.
    bool (*take)(Fact &fact, char *fields, char *errmsg);
    bool known;
    char value[line_size];
};

// What a user and a group have in common: a name that the system must know. It says uid for a group
// too, as it always has.
bool take_account(Fact &fact, const char *noun, int (*look_up)(const char *name), char *fields,
                  char *errmsg)
{
    const char *name = next_field(&fields);
    if (!name)
        return true;
    const int id = look_up(name);
    if (id < 0) {
        lprintf(errmsg, line_size, "%s '%s' has bad uid '%d'", fact.word, name, id);
        return false;
    }
    dmsg("Found %s [%s]", noun, name);
    scpy(fact.value, name);
    fact.known = true;
    return true;
}

bool take_user(Fact &fact, char *fields, char *errmsg)
{
    return take_account(fact, "user", file_getuid, fields, errmsg);
}

bool take_group(Fact &fact, char *fields, char *errmsg)
{
    return take_account(fact, "group", file_getgid, fields, errmsg);
}

// A directory that begins with a quote loses its first and its last character.
void take_directory(Fact &fact, char *directory)
{
    fact.known = true;
    if (directory[0] != '"') {
        scpy(fact.value, directory);
        return;
    }
    const size_t length = std::strlen(directory);
    if (length < 2)
        return;
    directory[length - 1] = '\0';
    scpy(fact.value, directory + 1);
}

bool take_scripts(Fact &fact, char *fields, char *)
{
    const char *url = next_field(&fields);
    char *directory = next_field(&fields);
    if (directory && s_strstr(url, "cgi-bin"))
        take_directory(fact, directory);
    return true;
}

bool take_root(Fact &fact, char *fields, char *)
{
    if (char *directory = next_field(&fields))
        take_directory(fact, directory);
    return true;
}

// In the order in which missing ones are listed.
Fact facts[] = {
    {"Group", take_group, false, ""},
    {"User", take_user, false, ""},
    {"DocumentRoot", take_root, false, ""},
    {"ScriptAlias", take_scripts, false, ""},
};

bool is_known(const Fact &fact)
{
    return fact.known;
}

bool take_line(char *line, char *errmsg)
{
    const char *word = next_field(&line);
    for (Fact &fact : facts)
        if (s_stricmp(fact.word, word) == 0)
            return fact.take(fact, line, errmsg);
    return true;
}

// Reads until all facts are known; false, with errmsg filled, on one that cannot be true.
bool read_facts(LineReader &reader, const char *path, char *errmsg)
{
    while (char *line = reader.next_content()) {
        if (!take_line(line, errmsg))
            return false;
        if (std::all_of(std::begin(facts), std::end(facts), is_known))
            return true;
    }
    if (reader.failed())
        emsg("Error reading '%s', %s", path, std::strerror(errno));
    return true;
}

// Reads the first configuration that opens.
bool read_configuration(char *errmsg)
{
    for (const char *path : http_files) {
        dmsg("Is Httpd conf?[%s]", path);
        LineReader reader(path);
        if (reader.is_open()) {
            dmsg("Httpd conf is [%s]", path);
            return read_facts(reader, path, errmsg);
        }
    }
    lprintf(errmsg, line_size, "Cannot find httpd.conf file");
    return false;
}

void list_missing(char *errmsg)
{
    scpy(errmsg, "Could not find", line_size);
    for (const Fact &fact : facts) {
        if (fact.known)
            continue;
        scat(errmsg, ", ", line_size);
        scat(errmsg, fact.word, line_size);
    }
}

} // namespace

int init_find_http_conf(char *user, char *group, char *root, char *scripts, char *errmsg)
{
    char unwanted[line_size];
    if (!errmsg)
        errmsg = unwanted;
    char *const buffers[] = {group, user, root, scripts}; // in the order of the facts
    const auto satisfied = [](const char *buffer, const Fact &fact) {
        return !buffer || fact.known;
    };
    const auto all_known = [&] {
        return std::equal(std::begin(buffers), std::end(buffers), std::begin(facts), satisfied);
    };
    if (!all_known() && !read_configuration(errmsg))
        return 0;
    if (!all_known()) {
        list_missing(errmsg);
        return 0;
    }
    for (size_t number = 0; number < std::size(facts); number++)
        scpy(buffers[number], facts[number].value, line_size);
    return 1;
}
