#include "fuzz.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include <unistd.h>

#include "file.h"
#include "log.h"
#include "shared.h"

namespace fs = std::filesystem;

static Log *const log = log_init(LogDebug);

std::string take_piece(std::string_view &input)
{
    const size_t end = std::min(input.find("====\n"), input.size());
    const std::string piece(input.substr(0, end));
    input.remove_prefix(std::min(end + 5, input.size()));
    return piece;
}

std::string tame(const std::uint8_t *bytes, size_t size)
{
    std::string text;
    for (const std::uint8_t byte : std::basic_string_view(bytes, size)) {
        if (byte == '/' && !text.ends_with('d'))
            text += 'd';
        if (byte != '.' || !text.ends_with('.'))
            text += static_cast<char>(byte);
    }
    size_t copies = 0, directories = 2;
    for (size_t at = 0; at < text.size(); at++) {
        copies += ::strncasecmp(&text[at], "copydir", 7) == 0;
        directories += ::strncasecmp(&text[at], "mkdir", 5) == 0;
    }
    return copies * directories <= 9 ? text : "";
}

// Removes also what hostile text has made unreadable.
static void remove_tree(const fs::path &path)
{
    std::error_code ignored;
    if (fs::is_directory(fs::symlink_status(path, ignored))) {
        fs::permissions(path, fs::perms::owner_all, ignored);
        for (const auto &entry : fs::directory_iterator(path, ignored))
            remove_tree(entry.path());
    }
    fs::remove(path, ignored);
}

void make_scratch(std::string_view text)
{
    for (const auto &entry : fs::directory_iterator("/tmp"))
        remove_tree(entry.path());
    fs::create_directories("/tmp/scratch/d/e");
    require(::chdir("/tmp/scratch") == 0, "chdir");
    for (const char *file : {"f", "d/f", "d/e/g"})
        write_file(file, text);
}

void write_file(const char *path, std::string_view text)
{
    const Stream stream(std::fopen(path, "w"));
    require(stream && std::fwrite(text.data(), 1, text.size(), stream.get()) == text.size(), path);
}

void add_settings(Ini *ini, std::string text)
{
    for (char *line = std::strtok(text.data(), "\n"); line; line = std::strtok(nullptr, "\n"))
        if (const char *name = next_field(&line))
            ini_add_name(ini, name, line);
}

std::string filled_in(Ini *ini, std::string_view text, bool keep_unknown)
{
    std::string result;
    for (size_t at = text.find("$("); at != text.npos; at = text.find("$(")) {
        const size_t end = text.find(')', at);
        if (end == text.npos)
            return result.append(text.substr(0, text.size() - keep_unknown));
        const std::string name(text.substr(at + 2, std::min<size_t>(end - at - 2, line_size - 1)));
        const char *value = ini_value_name(ini, name.c_str());
        result.append(text.substr(0, at));
        result.append(value ? value : text.substr(at, keep_unknown ? end + 1 - at : 0));
        text.remove_prefix(end + 1);
    }
    return result.append(text);
}

void reset_modules(size_t input_size)
{
    log->Size = 0;
    log_set_level(log, input_size % 16 == 0 ? LogDebug : LogError);
    log_set(log);
    file_setup_fn(nullptr, nullptr);
    clear_datfile();
}

void require(bool holds, const char *what)
{
    if (!holds && std::fprintf(stderr, "does not hold: %s\n", what))
        std::abort();
}

// Called once before the first input.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    require(::access("/run/fuzz", F_OK) == 0 && ::access("/", W_OK) != 0, "run by scripts/fuzz");
    require(log_open(log, "/dev/null") && std::freopen("/dev/null", "w", stdout), "/dev/null");
    make_scratch("");
    reset_modules(0);
    return 0;
}
