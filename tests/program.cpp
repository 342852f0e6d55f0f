#include "program.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "installer.h"
#include "rows.h"
#include "support.h"

namespace {

// A copy of this process that has nothing left to write of what this one has said.
pid_t fork_afresh()
{
    std::fflush(nullptr);
    return ::fork();
}

[[noreturn]] void become(const Program &program)
{
    if (program.as_nobody)
        become_nobody();
    std::vector<std::string> words = {program.path};
    words.insert(words.end(), program.arguments.begin(), program.arguments.end());
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    // Under valgrind a copy of this process starts in no time, and a file of its own in a second.
    if (program.ours && std::getenv("INSTALLER_IN_PROCESS"))
        std::exit(run_installer(static_cast<int>(arguments.size()) - 1, arguments.data()));
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
}

// Reads all that a program shows and gives the answers, until it ends or goes beyond all bounds.
Session converse(pid_t pid, int terminal, const Answers &answers)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::string shown;
    size_t seen = 0;
    auto next = answers.begin();
    bool ended = false;
    while (!ended && shown.size() < 1'000'000 && std::chrono::steady_clock::now() < deadline) {
        pollfd ready = {.fd = terminal, .events = POLLIN, .revents = 0};
        if (::poll(&ready, 1, 1000) <= 0)
            continue;
        std::array<char, 4096> piece;
        const ssize_t length = ::read(terminal, piece.data(), piece.size());
        ended = length <= 0;
        shown.append(piece.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
        std::erase(shown, '\r');
        if (next == answers.end() || shown.find(next->first, seen) == std::string::npos)
            continue;
        seen = shown.find(next->first, seen) + next->first.size();
        // It waits for the answer: a program that goes on to its end hangs up.
        const bool left = ::poll(&ready, 1, 20) > 0 && ready.revents & POLLHUP;
        EXPECT_FALSE(left) << shown;
        if (left)
            continue;
        const std::string typed = next->second + (next->second == end_of_input ? "" : "\n");
        EXPECT_EQ(::write(terminal, typed.data(), typed.size()), std::ssize(typed));
        ++next;
    }
    if (!ended)
        ::kill(pid, SIGKILL);
    ::close(terminal);
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(ended) << "goes on for ever: " << shown.substr(0, 2000);
    EXPECT_TRUE(next == answers.end()) << "never asked: " << next->first << "\nbut: " << shown;
    return {shown, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

} // namespace

Session run_piped(const Program &program, const std::string &input)
{
    std::array<int, 2> to, from;
    EXPECT_EQ(::pipe(to.data()) | ::pipe(from.data()), 0);
    // A pipe takes far more at once than any case types.
    EXPECT_EQ(::write(to[1], input.data(), input.size()), std::ssize(input));
    ::close(to[1]);
    const pid_t pid = fork_afresh();
    if (pid == 0) {
        ::dup2(to[0], STDIN_FILENO);
        ::dup2(from[1], STDOUT_FILENO);
        ::dup2(from[1], STDERR_FILENO);
        ::close(from[0]);
        become(program);
    }
    ::close(to[0]);
    ::close(from[1]);
    return converse(pid, from[0], {});
}

Session run_on_socket(const Program &program, const Answers &answers)
{
    std::array<int, 2> ends;
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    EXPECT_EQ(::fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    const pid_t pid = fork_afresh();
    if (pid == 0) {
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::dup2(ends[1], stream);
        ::close(ends[0]);
        become(program);
    }
    ::close(ends[1]);
    return converse(pid, ends[0], answers);
}

Session run_on_terminal(const Program &program, const Answers &answers)
{
    int terminal = -1;
    std::fflush(nullptr);
    const pid_t pid = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (pid == 0)
        become(program);
    return converse(pid, terminal, answers);
}

Answers answers_of(const std::string &text)
{
    Answers answers;
    for (const std::string &each : Fields(text)) {
        const size_t arrow = std::min(each.find("=>"), each.size());
        answers.emplace_back(each.substr(0, arrow), each.substr(std::min(arrow + 2, each.size())));
    }
    return answers;
}
