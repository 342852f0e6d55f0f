#include "shared.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "ini.h"
#include "lib.h"
#include "log.h"
#include "tcp.h"

namespace {

constexpr auto built_in_mode = Ini_Fixed | Ini_Replace;
constexpr size_t first_rows = 10;
constexpr size_t more_rows = 5;

SettingList *_settings = nullptr; // ended by an empty row
size_t used = 0;
size_t capacity = 0;

bool make_room(size_t rows)
{
    if (!grow_table(_settings, capacity, rows)) {
        emsg("Memory allocation error");
        return false;
    }
    capacity += rows;
    return true;
}

bool add_row(const char *name, const char *value, SettingMode mode)
{
    if (used == capacity && !make_room(_settings ? more_rows : first_rows))
        return false;
    const char *dflt = value && *value ? s_strdup(value) : nullptr;
    _settings[used++] = {.setting = s_strdup(name), .dflt = dflt, .mode = mode};
    return true;
}

bool add_built_in_rows()
{
    char host[line_size] = "";
    char system_dir[line_size] = "";
    char current_dir[line_size] = "";
    tcp_hostname(host, line_size);
    systemdir(system_dir, line_size);
    currentdir(current_dir, line_size);
    imsg("host=%s", host);
    imsg("system_dir=%s", system_dir);
    imsg("current_dir=%s", current_dir);
    imsg("action=install");
    return add_row("host", host, built_in_mode) &&
           add_row("system_dir", system_dir, built_in_mode) &&
           add_row("current_dir", current_dir, built_in_mode) &&
           add_row("action", "install", Ini_None);
}

bool add_line(char *line)
{
    const data_line parsed = data_parse(line);
    dmsg("Adding '%s'='%s'", parsed.name, parsed.value);
    return add_row(parsed.name, parsed.value, Ini_Replace);
}

bool read_rows(LineReader &reader)
{
    while (char *line = reader.next_content())
        if (!add_line(line))
            return false;
    return true;
}

} // namespace

data_line data_parse(char *line)
{
    char *rest = line;
    const char *name = next_field(&rest);
    return {.name = name, .value = rest ? rest + std::strspn(rest, " \t") : ""};
}

int load_datfile(Ini *ini, const char *file)
{
    if (!ini || !file)
        return 0;
    errno = 0;
    LineReader reader(file);
    if (!reader.is_open()) {
        emsg("Error opening '%s' for read, %s", file, std::strerror(errno));
        return 0;
    }
    clear_datfile();
    if (!add_built_in_rows() || !read_rows(reader))
        return 0;
    // Half of a product's settings is worse than none.
    if (reader.failed()) {
        emsg("Error reading '%s', %s", file, std::strerror(errno));
        return 0;
    }
    if (used == capacity && !make_room(1))
        return 0;
    ini_setup(ini, _settings, nullptr, 1);
    return ini_process(ini);
}

void clear_datfile()
{
    for (size_t row = 0; row < used; row++) {
        std::free(const_cast<char *>(_settings[row].setting));
        std::free(const_cast<char *>(_settings[row].dflt));
    }
    std::free(_settings);
    _settings = nullptr;
    used = 0;
    capacity = 0;
}
