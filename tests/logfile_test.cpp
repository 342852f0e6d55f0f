// The log from outside: what is a message, and that none is lost.
#include "logfile.h"

#include <fcntl.h>
#include <poll.h>
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

} // namespace
