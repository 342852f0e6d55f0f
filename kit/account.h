// The account of a run: whether everything was done and, if not, what was not, where it stands in
// the product's files, and why. It is drawn up from what the run has left in its log.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

struct Product;
struct RunRecord;

// How a run went, which is also the exit status: beside these 125 (kit_unable), when it could not
// be judged, and 128 and the number of the signal that ended it.
enum RunStatus : int {
    run_done = 0,
    run_stopped = 1, // by a command that failed
    run_nothing = 2, // was done: the questions ended it, or there was no such section
    run_faulty = 3,  // the end was reached, but something in it failed
};

// One thing that was not done as the product asked for it.
struct AccountEntry {
    std::string place;  // "install.cpy:34", or "install.cpy" where the line is not known
    std::string what;   // "failed" and so on
    std::string text;   // the line as it is written
    std::string filled; // with its references filled in; "": it has none
    std::vector<std::string> reasons;
};

struct Account {
    int status = run_done;
    std::vector<AccountEntry> entries;
    std::vector<std::string> remarks; // whole sentences about the run as such
    std::string section;              // of the copy script that was run; "": none
    size_t commands = 0;              // in it
    size_t begun = 0;                 // of these
};

// How the process of a run came to its end, as far as that is known.
struct Ending {
    bool is_known = false;
    int status = 0; // its own exit status
    int signal = 0; // that ended it; 0: none
};

// Judges a run by its log, beside the product's files as they are now. Null, or files that have
// been changed since: the account names no lines.
Account judge(const RunRecord &record, const Product *product, const Ending &ending);

// An account that says only why a run could not be started or judged.
Account unjudged(const std::string &sentence);

// Writes the account in lines; nothing for a run that did everything.
void tell(const Account &account, std::FILE *to);
