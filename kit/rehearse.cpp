#include "rehearse.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "difference.h"
#include "kit.h"
#include "lib.h"
#include "run.h"
#include "view.h"

namespace {

// A program with its arguments, null-terminated.
using Command = std::vector<char *>;

struct Rehearsal {
    bool shows_diff = false;
    bool as_json = false;
    const char *scratch = nullptr;
    std::vector<Command> commands = {};
};

// What is left of the command line.
struct Arguments {
    char **next;
    char **end;

    char *take() { return next < end ? *next++ : nullptr; }
};

struct rehearse_option {
    const char *word;
    bool (*take)(Rehearsal &rehearsal, Arguments &words);
};

constexpr rehearse_option rehearse_options[] = {
    {"--diff", [](Rehearsal &rehearsal, Arguments &) { return rehearsal.shows_diff = true; }},
    {"--json", [](Rehearsal &rehearsal, Arguments &) { return rehearsal.as_json = true; }},
    {"--scratch",
     [](Rehearsal &rehearsal, Arguments &words) {
         rehearsal.scratch = words.take();
         return rehearsal.scratch != nullptr;
     }},
};

bool is_divider(const char *word)
{
    return std::strcmp(word, "--") == 0;
}

// The programs, "--" between them; false when one is missing.
bool take_commands(Rehearsal &rehearsal, Arguments words)
{
    rehearsal.commands.emplace_back();
    while (char *word = words.take()) {
        if (!is_divider(word))
            rehearsal.commands.back().push_back(word);
        else if (!rehearsal.commands.back().empty())
            rehearsal.commands.emplace_back();
        else if (rehearsal.commands.size() > 1)
            return false;
    }
    for (Command &command : rehearsal.commands) {
        if (command.empty())
            return false;
        command.push_back(nullptr);
    }
    return true;
}

bool take_arguments(Rehearsal &rehearsal, Arguments words)
{
    while (words.next < words.end && words.next[0][0] == '-' && !is_divider(*words.next)) {
        const rehearse_option *known = find_word(rehearse_options, words.take(), std::strcmp);
        if (!known || !known->take(rehearsal, words))
            return false;
    }
    return take_commands(rehearsal, words);
}

// Done in the view. What programs read from us then has nothing of a dialogue in it.
int run_command(const Rehearsal &rehearsal, const Command &command)
{
    if (rehearsal.as_json)
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
    const Account account = run_and_judge(command.data());
    tell(account, stderr);
    return account.status;
}

// The status of the first program that has not done everything. What could not be started, or was
// ended by a signal, is not gone on from.
int run_commands(const Rehearsal &rehearsal, View &view)
{
    int result = run_done;
    for (size_t number = 0; number < rehearsal.commands.size(); number++) {
        const int status = view.take(number);
        if (result == run_done)
            result = status;
        if (status < 0)
            return unable("the program was not run to its end in the private view");
        if (status >= kit_unable)
            break;
    }
    return result;
}

// A log is not of the product: its changes are listed, but not its lines.
bool is_log(const Rehearsal &rehearsal, const std::string &path)
{
    return std::ranges::any_of(rehearsal.commands, [&](const Command &command) {
        const std::string name = '/' + product_of(command[0]) + ".log";
        const size_t at = path.rfind(name);
        return at != std::string::npos && path.find('/', at + name.size()) == std::string::npos;
    });
}

bool show(const Rehearsal &rehearsal, const View &view, const Difference &difference)
{
    std::string diff;
    if (rehearsal.shows_diff && !is_log(rehearsal, difference.path) &&
        !unified_diff(view, difference, diff))
        return false;
    if (rehearsal.as_json)
        std::printf("%s\n", as_json(difference, diff).c_str());
    else
        std::printf("%s\n%s", as_text(difference).c_str(), diff.c_str());
    return true;
}

// Lists what differs.
int show_all(const Rehearsal &rehearsal, const View &view, int status)
{
    std::vector<std::string> said = view.said();
    said.insert(said.end(), view.broken().begin(), view.broken().end());
    const std::vector<Difference> differences = find_differences(view, false, said);
    for (const std::string &sentence : said)
        std::fprintf(stderr, "product-kit: %s\n", sentence.c_str());
    if (!rehearsal.as_json && (status != kit_unable || !differences.empty()))
        std::printf(differences.empty() ? "\nNothing would differ on this machine.\n"
                                        : "\nThis would differ on this machine:\n");
    for (const Difference &difference : differences)
        if (!show(rehearsal, view, difference))
            return unable("there is no program 'diff', or it has failed");
    return view.broken().empty() ? status : static_cast<int>(kit_unable);
}

} // namespace

int kit_rehearse(int argc, char **argv)
{
    Rehearsal rehearsal;
    if (!take_arguments(rehearsal, {.next = argv + 1, .end = argv + argc}))
        return misused(argv[0]);
    std::vector<ViewStep> steps;
    for (const Command &command : rehearsal.commands)
        steps.emplace_back([&] { return run_command(rehearsal, command); });
    std::string reason;
    const std::unique_ptr<View> view = View::make(std::move(steps), rehearsal.scratch, reason);
    if (!view)
        return unable("%s", reason.c_str());
    const int status = run_commands(rehearsal, *view);
    view->end();
    return show_all(rehearsal, *view, status);
}
