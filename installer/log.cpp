#include "log.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

#include "array.h"
#include "lib.h"

const char *const LevelNames[4] = {"None", "Error", "Info", "Debug"};

Log *CurrentLog = nullptr;
Array *EmsgLog = nullptr;

namespace {

constexpr size_t default_rotate = 1'048'576;

void make_current_if_none(Log *log)
{
    if (CurrentLog)
        return;
    CurrentLog = log;
    check_emsglog();
}

bool ensure_open(Log *log)
{
    return log->F || (log->File[0] && log_open(log, log->File));
}

// A record shorter than the stream's buffer counts as written here, even if the flush that follows
// fails; a failed write takes its -1 into the size.
void count_written(Log *log, int written)
{
    log->Size += static_cast<size_t>(written);
}

// A device or a pipe is a place to write to, not one to move away: as root that would work.
bool can_rotate(const Log *log)
{
    struct stat info {};
    return ::stat(log->File, &info) != 0 || S_ISREG(info.st_mode);
}

// Moves every backup up by one, the oldest falling out, and `newest` to number 0.
void shift_backups(const Log *log, const char *newest)
{
    char target[line_size];
    lprintf(target, line_size - 1, "%s%d", log->File, log->Rotations);
    for (int number = log->Rotations - 1; number >= 0; number--) {
        char source[line_size];
        lprintf(source, line_size - 1, "%s%d", log->File, number);
        std::remove(target);
        std::rename(source, target);
        scpy(target, source);
    }
    std::rename(newest, target);
}

// The time as "Sun Nov 15 15:14:35 ", without the year.
void print_now(char (&text)[21])
{
    const time_t now = std::time(nullptr);
    struct tm local {};
    // Unlike localtime this does not look for a new time zone at every line.
    if (!::localtime_r(&now, &local) ||
        std::strftime(text, std::size(text), "%a %b %e %H:%M:%S ", &local) == 0)
        text[0] = '\0';
}

[[gnu::format(printf, 2, 0)]] void level_message(LogLevel level, const char *format,
                                                 va_list arguments)
{
    if (!CurrentLog || !format || CurrentLog->Level < level)
        return;
    // Logging must not disturb the reason of the failure that is being logged.
    const ErrnoKeeper keeper;
    char text[line_size];
    vlprintf(text, line_size, format, arguments);
    log_line(CurrentLog, text, level);
}

// Keeps an error until there is a log. When there is no room to keep it, the array says so through
// emsg, which comes back here: both are lost.
void keep_early(const char *text)
{
    static bool keeping = false;
    if (std::exchange(keeping, true))
        return;
    if (!EmsgLog)
        EmsgLog = array_init(0);
    Text copy(s_strdup(text));
    if (array_add(EmsgLog, copy.get()))
        static_cast<void>(copy.release());
    keeping = false;
}

} // namespace

Log *log_init(LogLevel level)
{
    Log *log = new Log{};
    log->Level = level;
    log->Rotate = default_rotate;
    log->Rotations = 4;
    return log;
}

void log_free(Log **log)
{
    if (!log || !*log)
        return;
    log_close(*log);
    delete *log;
}

int log_setup(Log *log, const char *path, const char *file)
{
    if (!log || (path && ::access(path, W_OK) != 0))
        return 0;
    log_close(log);
    scpy(log->File, path);
    attach_path(log->File, file);
    make_current_if_none(log);
    return 1;
}

int log_open(Log *log, const char *path)
{
    log_close(log);
    struct stat info {};
    log->Size = path && ::stat(path, &info) == 0 ? static_cast<size_t>(info.st_size) : 0;
    log->F = append_text(path);
    if (!log->F)
        return 0;
    scpy(log->File, path);
    make_current_if_none(log);
    return 1;
}

void log_dorotate(Log *log, int rotations, size_t size)
{
    if (!log)
        return;
    log->Rotations = rotations;
    log->Rotate = size;
}

void log_doflush(Log *log, int every)
{
    if (log)
        log->DoFlush = every;
}

void log_flush(Log *log)
{
    if (!log)
        log = CurrentLog;
    if (log && log->F)
        std::fflush(log->F);
}

void log_close(Log *log)
{
    if (log)
        s_fclose(&log->F);
}

void log_line(Log *log, const char *text, LogLevel level)
{
    if (!log || level > log->Level || !ensure_open(log))
        return;
    char when[21];
    print_now(when);
    count_written(log,
                  std::fprintf(log->F, "%.20s [%d] %s: %s\n", when, static_cast<int>(::getpid()),
                               LevelNames[level], text ? text : "(NULL)"));
    if (log->Size >= log->Rotate && can_rotate(log))
        log_rotate(log);
    else if (log->DoFlush != 0 && log->Lines % log->DoFlush == 0)
        log_flush(log);
    log->Lines++;
}

int log_rotate(Log *log)
{
    if (!log || !can_rotate(log))
        return log && log->F;
    char aside[line_size];
    const int first = std::rand();
    const int second = std::rand();
    lprintf(aside, line_size, "%s.%05d%05d", log->File, first, second);
    log_close(log);
    const bool moved = std::rename(log->File, aside) == 0;
    const int opened = log_open(log, log->File);
    // While the file cannot be moved every line comes here: the backups must not fall out one by
    // one with nothing to take their place.
    if (moved)
        shift_backups(log, aside);
    return opened;
}

void log_set(Log *log)
{
    CurrentLog = log;
}

void log_set_level(Log *log, LogLevel level)
{
    log->Level = level;
}

void log_set_level_name(Log *log, const char *name)
{
    for (unsigned level = LogNone; level <= LogDebug; level++) {
        if (s_stricmp(name, LevelNames[level]) == 0) {
            log->Level = static_cast<LogLevel>(level);
            return;
        }
    }
}

LogLevel log_level(const Log *log)
{
    return log ? log->Level : LogNone;
}

const char *log_level_name(const Log *log)
{
    return log ? LevelNames[log->Level] : nullptr;
}

void log_raw(const char *format, ...)
{
    if (!CurrentLog || !format || !ensure_open(CurrentLog))
        return;
    const ErrnoKeeper keeper;
    char text[line_size];
    va_list arguments;
    va_start(arguments, format);
    vlprintf(text, line_size, format, arguments);
    va_end(arguments);
    Log *log = CurrentLog;
    count_written(log, std::fprintf(log->F, "%s", text));
    // Meant, both: raw text rotates at the default size whatever the log's own, and is flushed when
    // the interval and the line count share no bit.
    if (log->Size >= default_rotate && can_rotate(log))
        log_rotate(log);
    else if (log->DoFlush != 0 && (log->DoFlush & log->Lines) == 0)
        log_flush(log);
    log->Lines++;
}

void emsg(const char *format, ...)
{
    if (!format)
        return;
    const ErrnoKeeper keeper;
    char text[line_size];
    va_list arguments;
    va_start(arguments, format);
    vlprintf(text, line_size, format, arguments);
    va_end(arguments);
    if (log_level(CurrentLog) != LogNone) {
        log_line(CurrentLog, text, LogError);
        return;
    }
    keep_early(text);
}

void imsg(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    level_message(LogInfo, format, arguments);
    va_end(arguments);
}

void dmsg(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    level_message(LogDebug, format, arguments);
    va_end(arguments);
}

void check_emsglog()
{
    if (!EmsgLog || !CurrentLog)
        return;
    // Taken off first: writing a line may itself come back here.
    Array *early = std::exchange(EmsgLog, nullptr);
    for (int index = 0; index < early->items; index++)
        log_line(CurrentLog, array_item<char>(early, index), LogError);
    array_free_dealloc(&early);
}
