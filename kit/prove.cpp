#include "prove.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kit.h"
#include "lib.h"
#include "lives.h"

namespace {

// --- The command line ------------------------------------------------------------------------

struct Order {
    std::string folder = ".";
    std::map<std::string, std::string> settings = {};
    std::vector<std::string> keeps = {};
};

bool take_setting(Order &order, const std::string &word)
{
    const size_t divider = word.find('=');
    if (divider == 0 || divider == std::string::npos)
        return false;
    order.settings[word.substr(0, divider)] = word.substr(divider + 1);
    return true;
}

bool take_keeps(Order &order, const std::string &word)
{
    order.keeps.push_back(word);
    return !word.empty();
}

struct prove_option {
    const char *word;
    bool (*take)(Order &order, const std::string &word);
};

constexpr prove_option prove_options[] = {{"--set", take_setting}, {"--keeps", take_keeps}};

bool take_arguments(Order &order, int argc, char **argv)
{
    bool has_folder = false;
    for (int at = 1; at < argc; at++) {
        if (const prove_option *known = find_word(prove_options, argv[at], std::strcmp)) {
            if (++at >= argc || !known->take(order, argv[at]))
                return false;
        } else if (has_folder || argv[at][0] == '-') {
            return false;
        } else {
            order.folder = argv[at];
            has_folder = true;
        }
    }
    return true;
}

// --- Many at once ----------------------------------------------------------------------------

// A life that is being lived, in a process of its own that reports through a pipe.
struct Worker {
    pid_t process = -1;
    Descriptor report = {};
    size_t life = 0;
    std::string told = {};
};

void tell_text(std::FILE *to, const std::string &text)
{
    std::fwrite(text.c_str(), 1, text.size() + 1, to);
}

void tell_verdict(const Verdict &verdict, int to)
{
    const Stream stream(::fdopen(to, "w"));
    tell_text(stream.get(), verdict.problem);
    for (const Deviation &deviation : verdict.deviations)
        for (const std::string *text : {&deviation.word, &deviation.path, &deviation.what})
            tell_text(stream.get(), *text);
}

Verdict read_verdict(const std::string &told)
{
    std::vector<std::string> texts;
    for (size_t at = 0; at < told.size(); at += texts.back().size() + 1)
        texts.emplace_back(told.c_str() + at);
    Verdict verdict;
    verdict.problem = texts.empty() ? "a life has ended before it could be told" : texts[0];
    for (size_t at = 1; at + 2 < texts.size(); at += 3)
        verdict.deviations.push_back({texts[at], texts[at + 1], texts[at + 2]});
    return verdict;
}

// Lives all lives, so many at once as there are processors.
class Workshop {
  public:
    explicit Workshop(const std::vector<Life> &those) : lives(those), verdicts(those.size())
    {
        const long processors = ::sysconf(_SC_NPROCESSORS_ONLN);
        most = processors > 0 ? static_cast<size_t>(processors) : 1;
    }

    std::vector<Verdict> run()
    {
        while (begun < lives.size() || !workers.empty()) {
            while (begun < lives.size() && workers.size() < most)
                begin(begun++);
            show_progress();
            if (!workers.empty())
                collect();
        }
        if (::isatty(STDERR_FILENO))
            std::fputs("\r\033[K", stderr);
        return verdicts;
    }

  private:
    void begin(size_t life)
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            verdicts[life].problem = "no pipe can be made";
            return;
        }
        Descriptor ours(ends[0]);
        Descriptor theirs(ends[1]);
        std::fflush(nullptr);
        const pid_t process = ::fork();
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            tell_verdict(lives[life].live(), theirs.release());
            ::_exit(EXIT_SUCCESS);
        }
        if (process < 0)
            verdicts[life].problem = "no process can be made";
        else
            workers.push_back({process, std::move(ours), life});
    }

    // Waits for news and takes them.
    void collect()
    {
        std::vector<pollfd> events;
        for (const Worker &worker : workers)
            events.push_back({worker.report.get(), POLLIN, 0});
        if (::poll(events.data(), events.size(), -1) <= 0)
            return;
        for (size_t at = events.size(); at-- > 0;)
            if (events[at].revents != 0 && !read_more(workers[at])) {
                ::waitpid(workers[at].process, nullptr, 0);
                verdicts[workers[at].life] = read_verdict(workers[at].told);
                workers.erase(workers.begin() + static_cast<ptrdiff_t>(at));
            }
    }

    static bool read_more(Worker &worker)
    {
        char block[4096];
        const ssize_t size = ::read(worker.report.get(), block, sizeof block);
        if (size > 0)
            worker.told.append(block, static_cast<size_t>(size));
        return size > 0;
    }

    void show_progress() const
    {
        if (::isatty(STDERR_FILENO))
            std::fprintf(stderr, "\r\033[K%zu of %zu lives", begun - workers.size(), lives.size());
    }

    const std::vector<Life> &lives;
    std::vector<Verdict> verdicts;
    std::vector<Worker> workers;
    size_t begun = 0;
    size_t most = 1;
};

// --- What is said ----------------------------------------------------------------------------

// Lives that follow one another, differ only in their places and have ended in the same way.
struct Group {
    size_t first;
    size_t last;
};

std::string title_of(const std::vector<Life> &lives, const Group &group)
{
    std::string title = lives[group.first].title;
    const size_t at = title.find("%s");
    if (at == std::string::npos)
        return title;
    std::string place = "behind " + lives[group.first].place;
    if (group.last > group.first)
        place += " to " + lives[group.last].place;
    return title.replace(at, 2, place);
}

void show_group(const std::vector<Life> &lives, const Verdict &verdict, const Group &group)
{
    const char *word = !verdict.problem.empty()     ? "unable "
                       : verdict.deviations.empty() ? "ok     "
                                                    : "differs";
    std::printf("%s  %s\n", word, title_of(lives, group).c_str());
    if (!verdict.problem.empty())
        std::printf("         %s\n", verdict.problem.c_str());
    for (const Deviation &deviation : verdict.deviations)
        std::printf("         %-7s  %s%s%s%s\n", deviation.word.c_str(),
                    printable(deviation.path).c_str(), deviation.what.empty() ? "" : "  (",
                    deviation.what.c_str(), deviation.what.empty() ? "" : ")");
}

int show_all(const std::vector<Life> &lives, const std::vector<Verdict> &verdicts)
{
    for (Group group = {0, 0}; group.first < lives.size(); group.first = group.last + 1) {
        group.last = group.first;
        while (group.last + 1 < lives.size() &&
               lives[group.last + 1].title == lives[group.first].title &&
               verdicts[group.last + 1] == verdicts[group.first])
            group.last++;
        show_group(lives, verdicts[group.first], group);
    }
    const auto differing = std::ranges::count_if(
        verdicts, [](const Verdict &verdict) { return !verdict.deviations.empty(); });
    std::printf("%zu lives, %td differ\n", lives.size(), differing);
    if (std::ranges::any_of(verdicts,
                            [](const Verdict &verdict) { return !verdict.problem.empty(); }))
        return kit_unable;
    return differing > 0 ? 1 : kit_done;
}

} // namespace

int kit_prove(int argc, char **argv)
{
    Order order;
    if (!take_arguments(order, argc, argv))
        return misused(argv[0]);
    Subject subject;
    std::string problem;
    if (!find_subject(order.folder, subject, problem))
        return unable("%s", problem.c_str());
    subject.settings = order.settings;
    subject.keeps = order.keeps;
    FirstLife first;
    if (!live_first(subject, first, problem))
        return unable("%s", problem.c_str());
    std::vector<Life> lives = other_lives(subject, first);
    lives.insert(lives.begin(), {"install, remove", "", [&] { return first.removed; }});
    return show_all(lives, Workshop(lives).run());
}
