// The last run that a log holds: its account, later or elsewhere.
#pragma once

#include <string>

#include "product.h"
#include "record.h"

struct LastRun {
    std::string log; // its path
    RunRecord record;
    bool has_product = false; // the product's files stand beside the log
    Product product;
};

// Reads the last run that was begun in a log, the backups beside it included; null: in the
// only one of a product in the present directory. False, with a sentence in `problem`, when there
// is none.
bool read_last_run(const char *log, LastRun &run, std::string &problem);

// The subcommand.
int kit_explain(int argc, char **argv);
