#include "logfile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lib.h"

namespace {

constexpr int backups = 5;

// The beginning of a message: "Sun Nov 15 15:14:35  [4711] Info: ".
bool read_head(std::string_view text, LogLine &line)
{
    constexpr std::string_view shape = "... ... .. ..:..:..  [";
    if (text.size() < shape.size())
        return false;
    for (size_t at = 0; at < shape.size(); at++)
        if (shape[at] != '.' && shape[at] != text[at])
            return false;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + shape.size(), end, line.process);
    text = {rest, static_cast<size_t>(end - rest)};
    if (error != std::errc() || !text.starts_with("] "))
        return false;
    text.remove_prefix(2);
    for (unsigned level = LogError; level <= LogDebug; level++) {
        const std::string_view name = LevelNames[level];
        if (!text.starts_with(name) || !text.substr(name.size()).starts_with(": "))
            continue;
        line.level = static_cast<LogLevel>(level);
        line.text = text.substr(name.size() + 2);
        return true;
    }
    return false;
}

// Puts messages together out of lines: what does not begin one goes on with the last.
class Messages {
  public:
    explicit Messages(const TakeLine &give_to) : take(give_to) {}

    void add(std::string_view text)
    {
        LogLine head;
        if (!read_head(text, head)) {
            if (begun)
                message.text.append("\n").append(text);
            return;
        }
        finish();
        message = std::move(head);
        begun = true;
    }

    void finish()
    {
        if (begun)
            take(message);
        begun = false;
    }

  private:
    const TakeLine &take;
    LogLine message = {};
    bool begun = false;
};

std::string backup_name(const std::string &path, int number)
{
    return path + std::to_string(number);
}

// Opening anything but a file could do or wait for anything.
Descriptor open_log(const std::string &path)
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return {};
    if (!S_ISREG(info.st_mode)) {
        errno = EINVAL;
        return {};
    }
    return Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

bool read_whole(const std::string &path, const TakeLine &take)
{
    const Descriptor file = open_log(path);
    return file.is_open() && read_lines(file.get(), 0, take);
}

} // namespace

bool read_lines(int file, off_t from, const TakeLine &take)
{
    Messages messages(take);
    std::string rest;
    std::array<char, 65536> block;
    ssize_t length = 0;
    while ((length = ::pread(file, block.data(), block.size(), from)) > 0) {
        from += length;
        rest.append(block.data(), static_cast<size_t>(length));
        size_t begin = 0;
        for (size_t end = 0; (end = rest.find('\n', begin)) != std::string::npos; begin = end + 1)
            messages.add({rest.data() + begin, end - begin});
        rest.erase(0, begin);
    }
    if (!rest.empty())
        messages.add(rest);
    messages.finish();
    return length == 0;
}

bool read_log(const std::string &path, const TakeLine &take)
{
    for (int number = backups - 1; number >= 0; number--)
        read_whole(backup_name(path, number), take);
    return read_whole(path, take);
}

const char *log_hindrance(const std::string &path)
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return errno == ENOENT ? nullptr : std::strerror(errno);
    if (S_ISDIR(info.st_mode))
        return "it is a directory";
    if (!S_ISREG(info.st_mode))
        return "it is a device or a pipe, and can be read by one alone";
    return ::access(path.c_str(), R_OK) == 0 ? nullptr : std::strerror(errno);
}

// --- Following -------------------------------------------------------------------------------

LogWatch::LogWatch(const std::string &log, TakeLine take_line)
    : path(log), take(std::move(take_line)), events(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (::inotify_add_watch(events.get(), directory.c_str(), IN_CREATE | IN_MOVED_TO) < 0)
        events.close();
    hold_all(true);
    // The log that is there already is the first of this run's files.
    seen = ::access(path.c_str(), F_OK) == 0;
}

void LogWatch::look()
{
    if (!read_events())
        return;
    hold_all(false);
    let_go();
}

// True when the log or a backup may be another file now. Each rotation ends by giving the newest
// backup its name.
bool LogWatch::read_events()
{
    const std::string name = last_component(path.c_str());
    bool has_news = !events.is_open();
    alignas(inotify_event) std::array<char, 8192> buffer;
    ssize_t length = 0;
    while ((length = ::read(events.get(), buffer.data(), buffer.size())) > 0) {
        for (const char *at = buffer.data(); at < buffer.data() + length;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            const std::string_view about = event->len > 0 ? event->name : "";
            overflowed = overflowed || (event->mask & IN_Q_OVERFLOW) != 0;
            rotations += (event->mask & IN_MOVED_TO) != 0 && about == backup_name(name, 0);
            has_news = has_news || overflowed || about.starts_with(name);
            at += sizeof(inotify_event) + event->len;
        }
    }
    return has_news;
}

// From the newest to the oldest, the way that the files go themselves: one that is moved meanwhile
// is met twice rather than never.
void LogWatch::hold_all(bool from_end)
{
    auto newer = hold(path, files.end(), from_end);
    for (int number = 0; number < backups; number++)
        newer = hold(backup_name(path, number), newer, from_end);
}

// Takes a file in, unless it is held already, before the next newer one; returns where it is.
LogWatch::Place LogWatch::hold(const std::string &name, Place newer, bool from_end)
{
    Descriptor file = open_log(name);
    struct stat info {};
    if (::fstat(file.get(), &info) != 0)
        return newer;
    // As long as a file is held open its number is not given to another one.
    const auto known = std::find_if(files.begin(), files.end(), [&](const Held &held) {
        return held.device == info.st_dev && held.number == info.st_ino;
    });
    if (known != files.end())
        return known;
    seen += !from_end;
    return files.insert(newer, {.file = std::move(file),
                                .device = info.st_dev,
                                .number = info.st_ino,
                                .from = from_end ? info.st_size : 0,
                                .given = false});
}

void LogWatch::give(Held &held)
{
    if (!std::exchange(held.given, true) && !read_lines(held.file.get(), held.from, take))
        failure = errno;
}

// A very long run must not use up the descriptors: its oldest files, of which the program has let
// go long ago, are read and closed. Those that may still have a name are kept.
void LogWatch::let_go()
{
    constexpr size_t most = 100;
    while (files.size() > most) {
        give(files.front());
        files.pop_front();
    }
}

bool LogWatch::finish()
{
    read_events();
    hold_all(false);
    for (Held &held : files)
        give(held);
    errno = failure;
    return failure == 0;
}
