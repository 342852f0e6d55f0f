#include "log.h"

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <regex>

#include <sys/stat.h>
#include <unistd.h>

#include "array.h"
#include "support.h"

namespace {

class LogFile : public InDirectory {
  protected:
    LogFile() { log_set(nullptr); }
    ~LogFile() override { log_set(nullptr); }

    // A file's lines without time and process, each ended by '|'.
    static std::string lines(const std::string &file = "x.log")
    {
        return std::regex_replace(read_all(file), std::regex(R"([^\n]*\[\d+\] ([^\n]*)\n)"), "$1|");
    }

    // The log files with their lines.
    static std::string files()
    {
        std::string all;
        for (const std::string &file : tree_of("."))
            if (const std::string name = file.substr(0, file.find('=')); name[0] == 'x')
                all += name + "=" + lines(name) + " ";
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

std::string time_now()
{
    const time_t now = std::time(nullptr);
    return std::string(std::asctime(std::localtime(&now))).substr(0, 20);
}

TEST_F(LogFile, LinesTellTimeProcessLevelAndText)
{
    open(4, 1'000'000);
    const std::string before = time_now();
    errno = ENOENT;
    emsg("%s %d", "100%", 7);
    EXPECT_EQ(errno, ENOENT);
    const std::string rest = " [" + std::to_string(::getpid()) + "] Error: 100% 7\n";
    const std::string line = read_all("x.log");
    EXPECT_TRUE(line == before + rest || line == time_now() + rest) << line;
    for (const size_t length : {998U, 999U, 1000U, 1200U}) {
        imsg("%s", std::string(length, 'x').c_str());
        EXPECT_TRUE(
            lines().ends_with("|Info: " + std::string(std::min(length, size_t{999}), 'x') + "|"));
    }
    imsg("%s!", std::string(999, 'y').c_str());
    EXPECT_TRUE(lines().ends_with("|Info: " + std::string(999, 'y') + "|"));
    log_close(log.get());
    EXPECT_EQ(log->F, nullptr);
    dmsg("again");
    EXPECT_TRUE(lines().starts_with("Error: 100% 7|") && lines().ends_with("|Debug: again|"));
    EXPECT_EQ(log->Size, read_all("x.log").size());
    EXPECT_EQ(log->Lines, 7);
}

TEST_F(LogFile, LevelsDecideWhatIsWritten)
{
    open(4, 1'000'000);
    std::string expected;
    for (const auto &[name, added] : {std::pair("NONE", ""),
                                      {"error", "Error: e|"},
                                      {"Info", "Error: e|Info: i|"},
                                      {"DEBUG", "Error: e|Info: i|Debug: d|"},
                                      {"verbose", "Error: e|Info: i|Debug: d|"}}) {
        log_set_level_name(log.get(), name);
        emsg("e");
        imsg("i");
        dmsg("d");
        EXPECT_EQ(lines(), expected += added) << name;
    }
    EXPECT_STREQ(log_level_name(log.get()), "Debug");
    log_set_level(log.get(), LogInfo);
    EXPECT_EQ(log_level(log.get()), LogInfo);
    EXPECT_EQ(EmsgLog->items, 1) << "the error at level none waits";
    check_emsglog();
}

TEST_F(LogFile, RotationKeepsTheNewestBackups)
{
    open(4, 100);
    imsg("%s", "");
    const size_t empty_line = log->Size;
    imsg("%s", std::string(99 - 2 * empty_line, 'x').c_str());
    EXPECT_EQ(log->Size, 99U);
    EXPECT_FALSE(std::filesystem::exists("x.log0"));
    imsg("1");
    EXPECT_EQ(lines(), "");
    EXPECT_TRUE(lines("x.log0").ends_with("|Info: 1|"));
    log_dorotate(log.get(), 4, empty_line + 1);
    for (const char *const text : {"2", "3", "4", "5"})
        imsg("%s", text);
    EXPECT_TRUE(lines("x.log4").ends_with("|Info: 1|"));
    imsg("6");
    imsg("%s", "");
    EXPECT_EQ(files(), "x.log0=Info: 6| x.log1=Info: 5| x.log2=Info: 4| x.log3=Info: 3| "
                       "x.log4=Info: 2| x.log=Info: | ");
    log_dorotate(log.get(), 0, 1);
    imsg("7");
    imsg("8");
    EXPECT_EQ(files(), "x.log0=Info: 8| x.log1=Info: 5| x.log2=Info: 4| x.log3=Info: 3| "
                       "x.log4=Info: 2| x.log= ");
    EXPECT_EQ(log->Lines, 11);
}

TEST_F(LogFile, BackupsStayWhileTheFileCannotBeMoved)
{
    for (const char *const file : {"x/x.log", "x/x.log0", "x/x.log3", "x/x.log4"}) {
        write_text(file, file);
        ASSERT_EQ(::chmod(file, 0666), 0);
    }
    ASSERT_EQ(::chmod("x", 0555), 0);
    become_nobody();
    ASSERT_EQ(log_setup(log.get(), "x", "x.log"), 0);
    ASSERT_EQ(log_open(log.get(), "x/x.log"), 1);
    log_dorotate(log.get(), 4, 1);
    for (int line = 0; line < 7; line++)
        imsg("kept");
    EXPECT_EQ(log_rotate(log.get()), 1);
    const std::vector<std::string> backups = {"x.log0=x/x.log0", "x.log3=x/x.log3",
                                              "x.log4=x/x.log4"};
    const auto found = tree_of("x");
    EXPECT_EQ(std::vector(found.begin(), found.end() - 1), backups);
    EXPECT_TRUE(lines("x/x.log").ends_with("Info: kept|Info: kept|Info: kept|Info: kept|"));
}

TEST_F(LogFile, EarlyErrorsWaitForALog)
{
    emsg("one %d", 1);
    imsg("dropped");
    log_set(log.get());
    emsg("no file, dropped");
    log_set_level(log.get(), LogNone);
    emsg("two");
    log_set(nullptr);
    log_set_level(log.get(), LogError);
    EXPECT_EQ(log_open(log.get(), "no/x.log"), 0);
    EXPECT_EQ(CurrentLog, nullptr);
    EXPECT_EQ(log_setup(log.get(), ".", "x.log"), 1);
    EXPECT_STREQ(log->File, "./x.log");
    emsg("three");
    log_close(log.get());
    EXPECT_EQ(lines(), "Error: one 1|Error: two|Error: three|");
    EXPECT_EQ(EmsgLog, nullptr);
    log_set(nullptr);
    emsg("discarded unwritten");
    log_set_level(log.get(), LogNone);
    EXPECT_EQ(log_setup(log.get(), nullptr, "x.log"), 1);
    EXPECT_STREQ(log->File, "x.log");
    EXPECT_EQ(EmsgLog, nullptr);
    EXPECT_EQ(lines(), "Error: one 1|Error: two|Error: three|");
}

TEST_F(LogFile, AFileThatCannotBeOpenedStopsNothing)
{
    open(4, 1);
    EXPECT_EQ(log_open(log.get(), "no/x.log"), 0);
    EXPECT_EQ(log->F, nullptr);
    EXPECT_STREQ(log->File, "x.log");
    EXPECT_EQ(log_open(log.get(), nullptr), 0);
    EXPECT_EQ(log_setup(log.get(), nullptr, "no/x.log"), 1);
    emsg("lost");
    log_raw("lost");
    EXPECT_EQ(log_rotate(log.get()), 0);
    EXPECT_EQ(log->Lines, 0);
    EXPECT_EQ(EmsgLog, nullptr);
    EXPECT_EQ(files(), "x.log= ");
}

TEST_F(LogFile, FlushingFollowsTheLinesWritten)
{
    open(4, 1'000'000);
    log_doflush(log.get(), 2);
    for (const char *const seen : {"Info: a|", "Info: a|", "Info: a|Info: a|Info: a|"}) {
        imsg("a");
        EXPECT_EQ(lines(), seen);
    }
    log_doflush(log.get(), 0);
    imsg("b");
    EXPECT_EQ(lines(), "Info: a|Info: a|Info: a|");
    log_flush(nullptr);
    EXPECT_EQ(lines(), "Info: a|Info: a|Info: a|Info: b|");
}

TEST_F(LogFile, RawTextHasRulesOfItsOwn)
{
    open(4, 1);
    log_set_level(log.get(), LogNone);
    log_doflush(log.get(), 2);
    // Flushed when the interval and the lines before share no bit: at 0 and 1, not at 2.
    for (const char *const seen : {"a", "aa", "aa"}) {
        log_raw("%s", "a");
        EXPECT_EQ(read_all("x.log"), seen);
    }
    // Rotated at 1 MiB, whatever the log's own threshold.
    for (const size_t rotate : {size_t{1}, size_t{4'000'000}}) {
        log_dorotate(log.get(), 4, rotate);
        log->Size = 1'048'570;
        log_raw("12345");
        EXPECT_EQ(log->Size, 1'048'575U);
        log_raw("\n");
        EXPECT_EQ(log->Size, 0U);
        EXPECT_TRUE(read_all("x.log0").ends_with("12345\n"));
    }
    log_raw("%s", std::string(1200, 'r').c_str());
    log_close(log.get());
    EXPECT_EQ(read_all("x.log"), std::string(999, 'r'));
    EXPECT_EQ(log->Lines, 8);
}

TEST_F(LogFile, NullsAreAnswered)
{
    Log *none = nullptr;
    const char *const format = nullptr;
    for (const auto message : {emsg, imsg, dmsg, log_raw})
        message(format);
    log_free(&none);
    log_free(nullptr);
    log_line(none, "a", LogError);
    log_close(none);
    log_flush(none);
    log_doflush(none, 1);
    log_dorotate(none, 1, 1);
    check_emsglog();
    EXPECT_EQ(EmsgLog, nullptr);
    EXPECT_EQ(log_setup(none, nullptr, "x.log") + log_level(none), 0U);
    EXPECT_EQ(log_level_name(none), nullptr);
}

} // namespace
