#include "support.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <grp.h>
#include <unistd.h>

namespace fs = std::filesystem;

void write_text(const std::string &path, const std::string &text)
{
    if (const fs::path above = fs::path(path).parent_path(); !above.empty())
        fs::create_directories(above);
    std::ofstream(path, std::ios::binary) << text;
}

std::string read_all(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> tree_of(const std::string &directory)
{
    std::vector<std::string> found;
    for (const auto &entry : fs::recursive_directory_iterator(directory)) {
        const std::string name = fs::path(entry.path()).lexically_relative(directory).string();
        found.push_back(entry.is_directory() ? name + "/" : name + "=" + read_all(entry.path()));
    }
    std::sort(found.begin(), found.end());
    return found;
}

InDirectory::InDirectory() : log(log_init(LogDebug))
{
    std::string pattern = (fs::temp_directory_path() / "install-test-XXXXXX").string();
    directory = ::mkdtemp(pattern.data());
    fs::permissions(directory, fs::perms::all);
    fs::current_path(directory);
    log_set(log.get());
    log_open(log.get(), at(".log").c_str());
    log_doflush(log.get(), 1);
    fs::permissions(at(".log"), fs::perms::all);
}

InDirectory::~InDirectory()
{
    log_set(nullptr);
    fs::current_path("/");
    std::error_code ignored;
    if (!HasFailure())
        fs::remove_all(directory, ignored);
}

std::vector<std::string> InDirectory::log_lines() const
{
    std::vector<std::string> lines;
    std::istringstream text(read_all(at(".log")));
    for (std::string line; std::getline(text, line);)
        if (const size_t process_end = line.find("] "); process_end != std::string::npos)
            lines.push_back(line.substr(process_end + 2));
    return lines;
}

bool InDirectory::logged(const std::string &line) const
{
    const auto lines = log_lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

void become_nobody()
{
    constexpr unsigned nobody = 65534;
    if (::geteuid() != 0)
        return;
    ASSERT_EQ(::setgroups(0, nullptr), 0);
    ASSERT_EQ(::setgid(nobody), 0);
    ASSERT_EQ(::setuid(nobody), 0);
}
