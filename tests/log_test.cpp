#include "log.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "array.h"
#include "support.h"

namespace {

class LogFile : public InDirectory {
  protected:
    LogFile() { log_set(nullptr); }
    ~LogFile() override { array_free_dealloc(&EmsgLog); }

    // The lines of a log without time and process, ended by '|'.
    static std::string plain(const std::string &text)
    {
        std::string lines;
        size_t start = 0;
        for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
            const size_t message = text.find("] ", start) + 2;
            lines += text.substr(message, end - message) + "|";
        }
        return lines + text.substr(start);
    }

    // The log's files.
    static std::string files()
    {
        std::string all;
        for (const std::string &file : tree_of("."))
            if (const size_t content = file.find('=') + 1; file.starts_with("x"))
                all += file.substr(0, content) + plain(file.substr(content)) + " ";
        return all;
    }

    void open(int rotations, size_t rotate)
    {
        ASSERT_EQ(log_open(log.get(), "x.log"), 1);
        log_dorotate(log.get(), rotations, rotate);
        log_doflush(log.get(), 1);
    }

    const Owned<Log, log_free> log{log_init(LogDebug)};
};

TEST_F(LogFile, LinesTellTimeProcessLevelAndText)
{
    open(4, 1'000'000);
    errno = ENOENT;
    emsg("%s %d", "100%", 7);
    EXPECT_EQ(errno, ENOENT);
    const std::string line = "[A-Z][a-z][a-z] [A-Z][a-z][a-z] [ 123][0-9] "
                             "[0-9][0-9]:[0-9][0-9]:[0-9][0-9]  \\[" +
                             std::to_string(::getpid()) + "] Error: 100% 7\n";
    EXPECT_EQ(::fnmatch(line.c_str(), read_all("x.log").c_str(), 0), 0) << read_all("x.log");
    std::string expected = "x.log=Error: 100% 7|";
    for (const size_t length : {998U, 999U, 1000U, 1200U}) {
        imsg("%s", std::string(length, 'x').c_str());
        expected += "Info: " + std::string(std::min<size_t>(length, 999), 'x') + "|";
    }
    log_close(log.get());
    dmsg("again");
    log_raw("%s", "raw");
    EXPECT_EQ(files(), expected + "Debug: again|raw ");
    EXPECT_TRUE(log->Size == read_all("x.log").size() && log->Lines == 7);
}

TEST_F(LogFile, LevelsDecideWhatIsWritten)
{
    open(4, 1'000'000);
    for (const char *const name : {"NONE", "error", "Info", "DEBUG", "unknown"}) {
        log_set_level_name(log.get(), name);
        emsg("e");
        imsg("i");
        dmsg("d");
    }
    EXPECT_EQ(files(), "x.log=Error: e|Error: e|Info: i|Error: e|Info: i|Debug: d|"
                       "Error: e|Info: i|Debug: d| ");
}

TEST_F(LogFile, RotationKeepsTheNewestBackups)
{
    open(log->Rotations, 100);
    imsg("%s", "");
    const size_t empty_line = log->Size;
    imsg("%s", std::string(99 - 2 * empty_line, 'x').c_str());
    imsg("1");
    EXPECT_TRUE(log->Size == 0 && read_all("x.log").empty());
    log_dorotate(log.get(), log->Rotations, 1);
    for (const char *const text : {"2", "3", "4", "5"})
        imsg("%s", text);
    EXPECT_TRUE(read_all("x.log4").ends_with("Info: 1\n"));
    imsg("6");
    log_dorotate(log.get(), 0, 1);
    imsg("7");
    EXPECT_EQ(files(), "x.log0=Info: 7| x.log1=Info: 5| x.log2=Info: 4| x.log3=Info: 3| "
                       "x.log4=Info: 2| x.log= ");
}

TEST_F(LogFile, WhatCannotOrMustNotBeMovedStays)
{
    // A name that has room for a backup's digit, but not for the name that a rotation takes first.
    const std::string name(250, 'x');
    write_text(name + "4", "old");
    ASSERT_EQ(log_open(log.get(), name.c_str()), 1);
    log_dorotate(log.get(), 4, 1);
    imsg("1");
    imsg("2");
    EXPECT_EQ(log_rotate(log.get()), 1);
    EXPECT_EQ(files(), name + "4=old " + name + "=Info: 1|Info: 2| ");
    ASSERT_EQ(::mkfifo("fifo", 0666), 0);
    EXPECT_EQ(log_open(log.get(), "fifo"), 0) << "nobody reads it";
    const int reader = ::open("fifo", O_RDWR | O_NONBLOCK);
    ASSERT_EQ(log_open(log.get(), "fifo"), 1);
    imsg("to a pipe");
    EXPECT_TRUE(std::filesystem::is_fifo("fifo"));
    log_close(log.get());
    ::close(reader);
}

TEST_F(LogFile, EarlyErrorsWaitForALog)
{
    emsg("one %d", 1);
    imsg("dropped");
    emsg("two");
    EXPECT_EQ(log_open(log.get(), "no/x.log"), 0);
    EXPECT_EQ(log_setup(log.get(), ".", "x.log"), 1);
    log_close(log.get());
    EXPECT_EQ(files(), "x.log=Error: one 1|Error: two| ");
}

// The address sanitizer and valgrind need memory that the limit denies them.
TEST_F(LogFile, ShortMemoryEndsTheProgramOrIsRefusedButNeverGoesRound)
{
    if (std::getenv("LD_PRELOAD") || std::getenv("ASAN_OPTIONS"))
        GTEST_SKIP() << "under a tool that needs memory of its own";
    const std::string large(1U << 26U, 'x');
    const auto without_memory = [&](auto act) {
        EmsgLog = array_init(0);
        EmsgLog->block = 1 << 24;
        const rlimit none = {0, 0};
        EXPECT_EQ(::setrlimit(RLIMIT_AS, &none), 0);
        act();
        ::_exit(EmsgLog->items);
    };
    EXPECT_EXIT(without_memory([] { emsg("lost"); }), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(without_memory([&] { static_cast<void>(s_strdup(large.c_str())); }),
                testing::ExitedWithCode(1), "Out of memory");
}

} // namespace
