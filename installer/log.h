// The log file: timed lines at three levels, numbered backups when it grows too large, and a buffer
// for errors that are raised before a log exists. Nothing here reports its own failures; logging
// never stops the program. Messages are cut at 999 characters.
#pragma once

#include <cstddef>
#include <cstdio>

struct Array;

enum LogLevel : unsigned { LogNone = 0, LogError = 1, LogInfo = 2, LogDebug = 3 };

// "None", "Error", "Info", "Debug", by level.
extern const char *const LevelNames[4];

struct Log {
    char File[1000]; // path of the file; empty: none configured
    LogLevel Level;  // the highest level that is written
    int DoFlush;     // N above 0: flush when the number of lines before this one divides by N
    int Lines;       // lines written since the record was made, rotation or not
    int Rotations;   // number of the highest backup: 4 keeps five, File0 to File4
    size_t Size;     // bytes in the open file
    size_t Rotate;   // the size that makes a line the last of its file
    FILE *F;         // null while closed; the next line opens File again
};

extern Log *CurrentLog; // where emsg, imsg, dmsg and log_raw write; not owned
extern Array *EmsgLog;  // heap texts of early errors; null: none

// A new log without a file, which rotates at 1 MiB and keeps five backups. It is not current yet.
[[nodiscard]] Log *log_init(LogLevel level);

// Closes and releases a log; the last logging call of the process. Neither the caller's pointer nor
// CurrentLog is cleared.
void log_free(Log **log);

// Names the file, in a directory that must be writable (null: as named), and makes the log current
// when none is. The first line opens the file. 1, or 0 for a null log or an unwritable directory.
int log_setup(Log *log, const char *path, const char *file);

// Opens the file for appending and makes the log current when none is. 1, or 0 with the log closed
// and its file name kept.
int log_open(Log *log, const char *path);

// Set the number of the highest backup with the size that rotates; the lines between flushes.
void log_dorotate(Log *log, int rotations, size_t size);
void log_doflush(Log *log, int every);

// Flushes the stream (null: of the current log).
void log_flush(Log *log);

// Closes the file; the next line opens it again.
void log_close(Log *log);

// Writes one line: time, process, level, text. Lines above the log's level are dropped.
void log_line(Log *log, const char *text, LogLevel level);

// Moves the file to the newest backup and starts an empty one; a device or a pipe stays where it
// is. 1, or 0 when the file cannot be opened.
int log_rotate(Log *log);

// Makes a log current (null: none). Early errors stay buffered.
void log_set(Log *log);

// Set the level of a log (not null); by name without regard to case, an unknown one being ignored.
void log_set_level(Log *log, LogLevel level);
void log_set_level_name(Log *log, const char *name);

// The level, LogNone for null; its name, null for null.
LogLevel log_level(const Log *log);
const char *log_level_name(const Log *log);

// Writes the text to the current log just as formatted, whatever the level.
[[gnu::format(printf, 1, 2)]] void log_raw(const char *format, ...);

// Write an error, an information or a debug line to the current log. Errors are buffered while
// there is no log or its level is LogNone. Null formats are ignored; errno is left as it was.
[[gnu::format(printf, 1, 2)]] void emsg(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void imsg(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void dmsg(const char *format, ...);

// Writes the buffered early errors to the current log and discards them.
void check_emsglog();
