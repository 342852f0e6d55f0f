// product-kit: what stands around a product's installer. It shows what a run will do and whether it
// did, and names an author's mistakes before any run. One program with a table of subcommands.
#pragma once

// How a subcommand ends, beside the statuses of its own page in the manual.
enum KitStatus : int {
    kit_done = 0,
    check_unable = 2, // the same as below, of check, which has no program's status to tell
    kit_unable = 125, // it could not be judged, looked at or started; one sentence says why
};

// One word of the command line and what it does.
struct Subcommand {
    const char *word;
    const char *arguments; // as in the usage line
    const char *purpose;   // one line for the overview
    // Called with argv[0] being the word itself; the result is the exit status.
    int (*run)(int argc, char **argv);
    int status_unable = kit_unable; // how it ends where its output cannot be written
};

// The subcommands by number, null behind the last: the manual is checked against them.
const Subcommand *kit_subcommand(unsigned number);

// The whole life of the command; returns its exit status.
int run_kit(int argc, char **argv);

// Prints "product-kit: " and one sentence on standard error; returns kit_unable.
[[gnu::format(printf, 1, 2)]] int unable(const char *format, ...);

// Prints how a subcommand is called on standard error; returns kit_unable.
int misused(const char *word);
