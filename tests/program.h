// Runs the built program in the current directory, as a script or as a person would.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct Program {
    std::string path = "./install";
    std::vector<std::string> arguments = {};
    bool as_nobody = false; // gives up root first, where the tests run as root
    bool ours = true;       // the installer, not a shell and the like
};

// Everything that came out, errors too, and the exit status (-1: did not end by itself).
struct Session {
    std::string shown;
    int status;
};

// Hands the whole input over at once, through a pipe.
Session run_piped(const Program &program, const std::string &input);

// What a person types to end the input.
inline const std::string end_of_input = "\x04";

// Types each answer on a pseudo-terminal when its prompt has been shown, but not before; what was
// typed is part of what is shown.
using Answers = std::vector<std::pair<std::string, std::string>>;
Session run_on_terminal(const Program &program, const Answers &answers);

// The same on a socket that does not wait, neither for what is typed nor for who reads.
Session run_on_socket(const Program &program, const Answers &answers);

// Answers out of "prompt=>answer|prompt=>answer"; a prompt alone is answered with an empty line.
Answers answers_of(const std::string &text);
