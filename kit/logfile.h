// The log of a run from outside: its lines, and how none of them is lost while the program that
// writes them moves the file to its backups.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <string>

#include <sys/types.h>

#include "lib.h"
#include "log.h"

// One message. Its text may hold line ends and is cut by the program at 999 characters.
struct LogLine {
    int process;
    LogLevel level;
    std::string text;
};

using TakeLine = std::function<void(LogLine &)>;

// Gives the messages of an open file from an offset on; what stands before the first is passed
// over. False, with errno set, when it cannot be read to its end.
bool read_lines(int file, off_t from, const TakeLine &take);

// Gives the messages of a finished log, those of its backups ("<path>4" to "<path>0") first. False,
// with errno set, when the log itself cannot be read.
bool read_log(const std::string &path, const TakeLine &take);

// Why a path cannot be a log that is read: "is a directory" and so on; null when it can, or when
// there is nothing yet.
const char *log_hindrance(const std::string &path);

// Follows a log that is being written. Every file that is the log for a time is held open from then
// on, so that it can be read also when it has been removed as the oldest backup. The program is not
// slowed down: it is never waited for, and nothing is locked.
class LogWatch {
  public:
    // Begins with what the log holds already, which is not given.
    LogWatch(const std::string &path, TakeLine take_line);

    // Readable when there may be something to look at; -1: look from time to time.
    int descriptor() const { return events.get(); }

    // Takes note of the files that have become the log since the last look.
    void look();

    // Gives all messages since the beginning, once nobody writes any more. False, with errno set,
    // when a file cannot be read.
    bool finish();

    // False when files came and went unseen: then lines are missing.
    bool is_complete() const { return !overflowed && seen > rotations; }

  private:
    struct Held {
        Descriptor file;
        dev_t device;
        ino_t number;
        off_t from; // where this run's lines begin
        bool given;
    };
    using Place = std::list<Held>::iterator;

    bool read_events();
    void hold_all(bool from_end);
    Place hold(const std::string &name, Place newer, bool from_end);
    void give(Held &held);
    void let_go();

    std::string path;
    TakeLine take;
    Descriptor events;
    std::list<Held> files; // in the order in which they were the log
    size_t seen = 0;       // files that may hold lines of this run
    size_t rotations = 0;
    bool overflowed = false;
    int failure = 0;
};
