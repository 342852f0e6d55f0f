// The lives of a product that a proof goes through, and what each leaves behind.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "trial.h"

// Something that is not as it should be at the end of a life.
struct Deviation {
    std::string word; // "left", "lost", "changed", "failed"
    std::string path; // or the flow that failed
    std::string what; // was changed, or has failed; "": nothing to add

    bool operator==(const Deviation &) const = default;
};

// How a life has ended.
struct Verdict {
    std::vector<Deviation> deviations = {};
    std::string problem = {}; // why it could not be lived, one sentence; "": it was

    bool operator==(const Verdict &) const = default;
};

struct Life {
    std::string title; // "%s" stands for the place
    std::string place; // behind which an install was stopped, "install.cpy:34"; "": it was not
    std::function<Verdict()> live;
};

// What all other lives are compared with: a clean install, and what a removal makes of it.
struct FirstLife {
    State installed = {};
    std::vector<std::string> settings_files = {}; // that the install made
    std::vector<std::string> directories = {};    // the same
    Verdict removed = {};
};

// Lives the first life; false with a sentence in `problem` when the product cannot be tried out.
bool live_first(const Subject &subject, FirstLife &first, std::string &problem);

// All others. Both arguments must outlive them.
std::vector<Life> other_lives(const Subject &subject, const FirstLife &first);
