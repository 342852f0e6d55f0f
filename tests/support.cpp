#include "support.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// Changes the user in a way that can be taken back. A process that changed its user cannot be
// traced, which the leak check needs, until it says so.
bool become(uid_t user)
{
    return ::setresuid(0, 0, 0) == 0 && ::setresgid(user, user, 0) == 0 &&
           ::setresuid(user, user, 0) == 0 && ::prctl(PR_SET_DUMPABLE, 1) == 0;
}

} // namespace

void write_text(const std::string &path, const std::string &text)
{
    fs::create_directories(fs::absolute(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string read_all(const std::string &path)
{
    const std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

bool have_own_mounts()
{
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    if (::unshare(::geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    if (::geteuid() != 0) {
        write_text("/proc/self/setgroups", "deny");
        write_text("/proc/self/uid_map", user + " " + user + " 1");
        write_text("/proc/self/gid_map", group + " " + group + " 1");
    }
    return ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0;
}

std::vector<std::string> tree_of(const std::string &directory)
{
    std::vector<std::string> found;
    for (const auto &entry : fs::recursive_directory_iterator(directory)) {
        found.push_back(entry.path().lexically_relative(directory));
        found.back() += entry.is_directory() ? "/" : "";
        if (entry.is_regular_file())
            found.back() += "=" + read_all(entry.path());
    }
    std::ranges::sort(found);
    return found;
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += (&line == &lines.front() ? "" : "|") + line;
    return text;
}

Store store_of(std::initializer_list<std::pair<const char *, const char *>> settings)
{
    Store store(ini_init());
    for (const auto &[name, value] : settings)
        ini_add_name(store.get(), name, value);
    return store;
}

std::string values_of(const Store &store, const std::string &names)
{
    std::vector<std::string> values;
    std::istringstream each(names);
    for (std::string name; each >> name;)
        values.push_back(shown(ini_value_name(store.get(), name.c_str())));
    return joined(values);
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
    become(0);
    std::error_code ignored;
    if (HasFailure())
        return;
    for (const auto &entry : fs::directory_iterator(directory, ignored))
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored))
            fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, ignored);
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
    return std::ranges::count(log_lines(), line) > 0;
}

std::string InDirectory::new_errors()
{
    const std::string level = "Error: ";
    std::vector<std::string> errors;
    const auto lines = log_lines();
    for (; lines_seen < lines.size(); lines_seen++)
        if (lines[lines_seen].starts_with(level))
            errors.push_back(lines[lines_seen].substr(level.size()));
    return joined(errors);
}

void become_nobody()
{
    if (::geteuid() != 0)
        return;
    ASSERT_EQ(::setgroups(0, nullptr), 0);
    ASSERT_TRUE(become(65534) && ::geteuid() != 0);
}
