// The log from outside: what is a message, and that none is lost.
#include "logfile.h"

#include <fstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support.h"

namespace {

using LogFileTest = InDirectory;

TEST_F(LogFileTest, AMessageGoesOnOverLinesThatBeginNone)
{
    write_text("a.log", "cut off\nSun Nov 15 15:14:35  [4711] Info: one\nmore\n\n"
                        "Sun Nov  1 15:14:35  [4711] Warning: none\n"
                        "Sun Nov  1 15:14:36  [12] Error: two: 'x'");
    std::string texts;
    ASSERT_TRUE(read_log("a.log", [&](const LogLine &line) {
        texts +=
            std::to_string(line.process) + "/" + LevelNames[line.level] + "/" + line.text + "|";
    }));
    EXPECT_EQ(texts, "4711/Info/one\nmore\n\nSun Nov  1 15:14:35  [4711] Warning: none|"
                     "12/Error/two: 'x'|");
}

// Ten times as much as a file holds, and twice as much as is kept.
TEST_F(LogFileTest, NoMessageOfTenMegabytesIsLost)
{
    constexpr int most = 60'000;
    write_text("a.log", std::string(1'000'000, 'x') + "\n");
    int next = 0;
    LogWatch watch("a.log", [&](const LogLine &line) {
        next += line.text == std::to_string(next) + std::string(140, '.');
    });
    const pid_t writer = ::fork();
    if (writer == 0) {
        const Owned<Log, log_free> written(log_init(LogInfo));
        log_open(written.get(), "a.log");
        log_doflush(written.get(), 1);
        for (int number = 0; number < most; number++)
            log_line(written.get(), (std::to_string(number) + std::string(140, '.')).c_str(),
                     LogInfo);
        ::_exit(0);
    }
    while (::waitpid(writer, nullptr, WNOHANG) == 0) {
        pollfd ready = {.fd = watch.descriptor(), .events = POLLIN, .revents = 0};
        ::poll(&ready, 1, 10);
        watch.look();
    }
    EXPECT_TRUE(watch.finish());
    EXPECT_TRUE(watch.is_complete());
    EXPECT_EQ(next, most);
}

// Writes a message as another process would, and looks at the log as a watch in time would.
void add_message(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::app) << "Sun Nov 15 15:14:35  [1] Info: " << text << '\n';
}

void rotate(const std::string &path)
{
    for (int number = 3; number >= 0; number--)
        ::rename((path + std::to_string(number)).c_str(),
                 (path + std::to_string(number + 1)).c_str());
    ::rename(path.c_str(), (path + "0").c_str());
}

class LogWatchTest : public LogFileTest {
  protected:
    TakeLine take = [this](const LogLine &line) { texts += line.text + "|"; };
    std::string texts;
};

TEST_F(LogWatchTest, OnlyWhatIsAddedIsGivenAndInOrder)
{
    add_message("a.log0", "long ago");
    add_message("a.log", "before");
    add_message("a.log.kept", "another's");
    LogWatch watch("a.log", take);
    for (const char *text : {"one", "two", "three"}) {
        add_message("a.log", text);
        rotate("a.log");
        add_message("a.log", std::string(text) + "'");
    }
    EXPECT_TRUE(watch.finish());
    EXPECT_TRUE(watch.is_complete());
    EXPECT_EQ(texts, "one|one'|two|two'|three|three'|");
}

// Seven files, of which two have lost their names before anybody has looked.
TEST_F(LogWatchTest, WhatCouldNotBeKeptUpWithIsKnownToBeLost)
{
    add_message("a.log", "before");
    LogWatch watch("a.log", take);
    for (int number = 0; number < 7; number++) {
        rotate("a.log");
        add_message("a.log", std::to_string(number));
    }
    EXPECT_TRUE(watch.finish());
    EXPECT_EQ(texts, "1|2|3|4|5|6|");
    EXPECT_FALSE(watch.is_complete());
}

TEST_F(LogWatchTest, WhatCannotBeReadIsNotWaitedFor)
{
    ::mkfifo("a.log", 0600);
    LogWatch watch("a.log", take);
    EXPECT_STREQ(log_hindrance("a.log"), "it is a device or a pipe, and can be read by one alone");
    ::unlink("a.log");
    EXPECT_EQ(log_hindrance("a.log"), nullptr);
    add_message("elsewhere", "through a link");
    ::symlink("elsewhere", "a.log");
    EXPECT_EQ(log_hindrance("a.log"), nullptr);
    EXPECT_TRUE(watch.finish());
    EXPECT_EQ(texts, "through a link|");
    ::chmod("elsewhere", 0);
    become_nobody();
    EXPECT_STREQ(log_hindrance("a.log"), "Permission denied");
}

} // namespace
