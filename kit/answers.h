// The data file of a product with the answers of a run as its values: what makes an unattended run
// repeat a dialogue.
#pragma once

#include <string>
#include <vector>

#include "explain.h"

struct AnsweredData {
    std::string text;                  // of the data file
    std::vector<std::string> problems; // sentences on answers that a data file cannot hand over
};

// Fills in the answers of a run that has its product beside it. Comments, order and blanks stay,
// and so does each line that gives the right value already. False, with a sentence in `problem`,
// when the answers cannot be told from what else the run stored.
bool answer_data(const LastRun &run, AnsweredData &answered, std::string &problem);

// The subcommand.
int kit_answers(int argc, char **argv);
