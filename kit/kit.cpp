#include "kit.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "answers.h"
#include "check.h"
#include "explain.h"
#include "lib.h"
#include "prove.h"
#include "rehearse.h"
#include "run.h"

namespace {

int run_help(int argc, char **argv);

constexpr Subcommand subcommands[] = {
    {"check",
     "[--strict] [--json] [FOLDER [NAME]] | --list [SECTION [FOLDER [NAME]]] | --rules [RULE]",
     "names the mistakes in a product before anything runs", kit_check, check_unable},
    {"run", "[--] PROGRAM [ARGUMENT ...]", "runs an installer and says what was not done", kit_run},
    {"explain", "[LOG]", "gives the account of the last run that a log holds", kit_explain},
    {"answers", "[LOG]", "prints the data file with the answers of that run", kit_answers},
    {"rehearse",
     "[--diff] [--json] [--scratch DIRECTORY] [--] PROGRAM [ARGUMENT ...] [-- PROGRAM ...]",
     "runs it on a private view of this machine and lists what would differ", kit_rehearse},
    {"prove", "[FOLDER] [--set NAME=VALUE ...] [--keeps PATTERN ...]",
     "lives a product's whole life in private views and says what is left", kit_prove},
    {"help", "[SUBCOMMAND]", "shows how a subcommand is called", run_help},
};

void print_usage(std::FILE *to, const Subcommand &command)
{
    std::fprintf(to, "usage: product-kit %s %s\n", command.word, command.arguments);
}

void print_overview(std::FILE *to)
{
    std::fputs("usage: product-kit SUBCOMMAND [ARGUMENT ...]\n\n", to);
    for (const Subcommand &command : subcommands)
        std::fprintf(to, "  %-10s %s\n", command.word, command.purpose);
}

int run_help(int argc, char **argv)
{
    if (argc < 2) {
        print_overview(stdout);
        return kit_done;
    }
    const Subcommand *command = find_word(subcommands, argv[1], std::strcmp);
    if (!command)
        return unable("there is no subcommand '%s'", argv[1]);
    print_usage(stdout, *command);
    std::printf("%s\n", command->purpose);
    return kit_done;
}

// What nobody could read is no result.
int unless_lost(int status, int otherwise)
{
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return status;
    unable("the output cannot be written: %s", std::strerror(errno));
    return otherwise;
}

bool is_help(const char *word)
{
    return std::strcmp(word, "--help") == 0 || std::strcmp(word, "-h") == 0;
}

} // namespace

const Subcommand *kit_subcommand(unsigned number)
{
    return number < std::size(subcommands) ? &subcommands[number] : nullptr;
}

int run_kit(int argc, char **argv)
{
    if (argc < 2) {
        print_overview(stderr);
        return kit_unable;
    }
    if (is_help(argv[1]))
        return unless_lost(run_help(1, argv), kit_unable);
    const Subcommand *command = find_word(subcommands, argv[1], std::strcmp);
    if (!command)
        return unable("there is no subcommand '%s'; 'product-kit help' lists them", argv[1]);
    if (argc > 2 && is_help(argv[2]))
        return unless_lost(run_help(2, argv), command->status_unable);
    return unless_lost(command->run(argc - 1, argv + 1), command->status_unable);
}

int unable(const char *format, ...)
{
    std::fputs("product-kit: ", stderr);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    return kit_unable;
}

int misused(const char *word)
{
    if (const Subcommand *command = find_word(subcommands, word, std::strcmp))
        print_usage(stderr, *command);
    return kit_unable;
}
