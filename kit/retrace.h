// The way of a run through its probes and questions, found again: the log tells what was stored,
// the product's files tell what could store it next. So each stored value has the line that made
// it, and the end of the questions its place.
#pragma once

#include <string>
#include <vector>

#include "ini.h"
#include "lib.h"
#include "record.h"

struct Line;
struct Product;

using Store = Owned<Ini, ini_free>;

// The store that a run begins with: its built-in settings and those of a data file, with the
// references between them resolved.
Store store_before_probes(const RunRecord &record, const Settings &settings);

// A value that the run stored.
struct Step {
    const Line *line; // the probe, the question or the step between questions
    bool is_answer;   // it was given to a question
    bool is_refused;  // the store kept what it had
    bool is_cut;      // the log does not hold the whole value
    std::string setting;
    std::string value;
    std::string offered; // for an answer: the value that it could have taken
};

// Where the questions came to their end.
enum class DialogueEnd {
    unknown,  // before the first question, or between two steps
    asking,   // at a question, which was left or whose answer was not taken
    error,    // at an Error step whose setting was false
    answered, // behind the last question
};

struct Way {
    bool is_known = false;   // false: the files are not those of the run
    std::vector<Step> steps; // in the order of the run
    std::string section;     // of the last questions
    DialogueEnd end = DialogueEnd::unknown;
    const Line *last = nullptr; // where; null behind the last question
};

// Retraces a run beside the product's files as they are now. `section` is that of its copy script;
// "": none was loaded.
Way retrace(const RunRecord &record, const Product &product, const std::string &section);
