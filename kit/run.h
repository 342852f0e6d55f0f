// Running a product's installer on the present terminal and judging what it has done.
#pragma once

#include <string>

#include "account.h"
#include "record.h"

// What a process has left behind.
struct Finished {
    std::string problem; // why it was not started, or left nothing to judge by; "": none
    Ending ending;
    RunRecord record;
};

// Starts a program in the present directory, with its arguments (null-terminated, the first being
// the program's path, or its name to be looked for in PATH), and waits for its end. It has the
// terminal, the standard streams and the signals as if it had been started without us; its log is
// followed meanwhile.
//
// May be called in a process that was forked for it and in a namespace of its own: nothing is kept
// from one call to the next, and this process's signal dispositions are as they were when it
// returns.
Finished run_program(char *const *arguments);

// Judges what a program has left behind in the present directory, beside the product's files.
Account judge_run(const Finished &finished, const char *program);

// Both in turn.
Account run_and_judge(char *const *arguments);

// The name of the product that a program belongs to: the base name of its path up to the first '.'.
std::string product_of(const char *program);

// The subcommand.
int kit_run(int argc, char **argv);
