#include "run.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <set>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "file.h"
#include "kit.h"
#include "lib.h"
#include "product.h"
#include "remains.h"

std::string product_of(const char *program)
{
    char name[path_size] = "";
    exename(name, program, path_size);
    return name;
}

namespace {

// --- Before the start ------------------------------------------------------------------------

// The names of the products in the present directory, in order.
std::string products_here()
{
    std::set<std::string> names;
    for (Scan scan(".", "*.dat"); scan.entry(); scan.next()) {
        const std::string name = scan.entry()->name;
        names.insert(name.substr(0, name.size() - std::strlen(".dat")));
    }
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "'" : ", '") + name + "'";
    return text;
}

// Why a program should not be started; "": it may.
std::string refusal(const char *program)
{
    struct stat info {};
    const bool has_path = std::strchr(program, Sep) != nullptr;
    if (has_path && ::stat(program, &info) != 0)
        return "there is no program '" + std::string(program) + "': " + std::strerror(errno);
    if (has_path && (S_ISDIR(info.st_mode) || ::access(program, X_OK) != 0))
        return "'" + std::string(program) + "' is no program that can be run here";
    const std::string name = product_of(program);
    if (::access((name + ".dat").c_str(), F_OK) == 0)
        return "";
    const std::string others = products_here();
    return "'" + std::string(program) + "' was not started: it takes the files of a product '" +
           name + "', and this directory " +
           (others.empty() ? "has no '" + name + ".dat'" : "holds those of " + others);
}

// --- Signals ---------------------------------------------------------------------------------

volatile std::sig_atomic_t the_child = 0;

// What the terminal sends goes to the program as well; what somebody sends to us alone is meant for
// it.
void pass_on(int signal, siginfo_t *info, void *)
{
    if (info->si_code <= 0 && the_child > 0)
        ::kill(the_child, signal);
}

void wake_up(int, siginfo_t *, void *)
{
}

// Keeps this process alive until the program has ended. A signal that was ignored stays ignored.
class SignalKeeper {
  public:
    SignalKeeper()
    {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : signals)
            sigaddset(&held, signal);
        ::sigprocmask(SIG_BLOCK, &held, &mask);
        for (size_t at = 0; at < signals.size(); at++)
            keep(at);
    }
    // What has come while the program ended was meant for it, and does not end us now.
    ~SignalKeeper()
    {
        the_child = 0;
        ::sigprocmask(SIG_SETMASK, &mask, nullptr);
        restore();
    }
    SignalKeeper(const SignalKeeper &) = delete;
    SignalKeeper &operator=(const SignalKeeper &) = delete;

    // As it was before; also in the child, before it becomes the program.
    void restore() const
    {
        for (size_t at = 0; at < signals.size(); at++)
            ::sigaction(signals[at], &before[at], nullptr);
        ::sigprocmask(SIG_SETMASK, &mask, nullptr);
    }

    // While waiting, signals come as they did before, and the end of the child comes too.
    sigset_t waiting_mask() const
    {
        sigset_t waiting = mask;
        sigdelset(&waiting, SIGCHLD);
        return waiting;
    }

  private:
    static constexpr std::array signals = {SIGCHLD, SIGINT,  SIGQUIT, SIGTERM,
                                           SIGHUP,  SIGUSR1, SIGUSR2};

    void keep(size_t at)
    {
        struct sigaction action {};
        action.sa_sigaction = signals[at] == SIGCHLD ? wake_up : pass_on;
        action.sa_flags = SA_SIGINFO;
        ::sigaction(signals[at], nullptr, &before[at]);
        if (signals[at] == SIGCHLD || before[at].sa_handler != SIG_IGN)
            ::sigaction(signals[at], &action, nullptr);
    }

    std::array<struct sigaction, signals.size()> before = {};
    sigset_t mask = {};
};

// --- The run ---------------------------------------------------------------------------------

// The child's part: becomes the program, or says through the pipe why it cannot.
[[noreturn]] void become(char *const *arguments, int report)
{
    ::execvp(arguments[0], arguments);
    const int reason = errno;
    static_cast<void>(!::write(report, &reason, sizeof reason));
    ::_exit(127);
}

// Starts the program; -1, with errno set, when that fails.
pid_t start(char *const *arguments, const SignalKeeper &signals)
{
    std::array<int, 2> report = {};
    if (::pipe2(report.data(), O_CLOEXEC) != 0)
        return -1;
    pid_t child = ::fork();
    if (child == 0) {
        signals.restore();
        become(arguments, report[1]);
    }
    int reason = child < 0 ? errno : 0;
    ::close(report[1]);
    if (child > 0 && ::read(report[0], &reason, sizeof reason) == sizeof reason) {
        ::waitpid(child, nullptr, 0);
        child = -1;
    }
    ::close(report[0]);
    errno = reason;
    return child;
}

// Waits for the program's end, and keeps up with its log meanwhile.
Ending wait_for(pid_t child, LogWatch &watch, const SignalKeeper &signals)
{
    constexpr timespec now_and_then = {.tv_sec = 0, .tv_nsec = 20'000'000};
    const sigset_t mask = signals.waiting_mask();
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        pollfd ready = {.fd = watch.descriptor(), .events = POLLIN, .revents = 0};
        const bool has_events = watch.descriptor() >= 0;
        if (::ppoll(&ready, 1, has_events ? nullptr : &now_and_then, &mask) >= 0)
            watch.look();
    }
    return {.is_known = true,
            .status = WIFEXITED(status) ? WEXITSTATUS(status) : 0,
            .signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0};
}

std::string log_problem(const std::string &log, const LogWatch &watch, const RunRecord &record)
{
    const std::string has_run = "the program has run, but cannot be judged: ";
    if (const char *hindrance = log_hindrance(log))
        return has_run + "'" + log + "' cannot be read, " + hindrance;
    if (record.stage == Stage::nothing)
        return has_run + "it has written nothing to '" + log + "'";
    return watch.is_complete() ? "" : has_run + "lines of '" + log + "' are lost";
}

} // namespace

Finished run_program(char *const *arguments)
{
    Finished finished;
    finished.problem = refusal(arguments[0]);
    if (!finished.problem.empty())
        return finished;
    const std::string log = product_of(arguments[0]) + ".log";
    const SignalKeeper signals;
    LogWatch watch(log, [&](const LogLine &line) {
        if (line.process == the_child)
            finished.record.take(line);
    });
    the_child = start(arguments, signals);
    if (the_child < 0) {
        finished.problem =
            "'" + std::string(arguments[0]) + "' cannot be started: " + std::strerror(errno);
        return finished;
    }
    finished.ending = wait_for(the_child, watch, signals);
    if (!watch.finish())
        finished.problem = "'" + log + "' cannot be read: " + std::strerror(errno);
    else
        finished.problem = log_problem(log, watch, finished.record);
    note_remains(finished.record);
    return finished;
}

Account judge_run(const Finished &finished, const char *program)
{
    if (!finished.problem.empty() && finished.ending.signal == 0)
        return unjudged(finished.problem);
    Product product;
    std::string unused;
    const bool is_there = load_product(".", product_of(program), product, unused);
    return judge(finished.record, is_there ? &product : nullptr, finished.ending);
}

Account run_and_judge(char *const *arguments)
{
    return judge_run(run_program(arguments), arguments[0]);
}

// --- The subcommand ----------------------------------------------------------------------------

int kit_run(int argc, char **argv)
{
    int first = 1;
    if (first < argc && std::strcmp(argv[first], "--") == 0)
        first++;
    else if (first < argc && argv[first][0] == '-')
        return misused(argv[0]);
    if (first >= argc)
        return misused(argv[0]);
    const Finished finished = run_program(argv + first);
    const Account account = judge_run(finished, argv[first]);
    // What the program has shown last need not end its line.
    const bool has_run = finished.ending.is_known;
    if (has_run && account.status != run_done && ::isatty(STDERR_FILENO))
        std::fputc('\n', stderr);
    tell(account, stderr);
    return account.status;
}
