// `product-kit check`: names the mistakes in a product before anything runs.
//
// A finding stands on a line and bears the name of a rule. It can be accepted in the file itself,
// by a comment right above that line which names the rule and says why:
//
//     # check: destination-slash: everything is in place already, this line only documents it
#pragma once

#include <string>
#include <vector>

#include "disk.h"
#include "flow.h"
#include "product.h"
#include "section_view.h"

enum class Severity {
    error,   // something goes wrong in a run that can happen
    warning, // something that is hardly meant
};

struct Finding {
    int order;        // of the file: those of the product as they are read, templates, the blurb
    std::string file; // in the product's folder
    unsigned line;
    Severity severity;
    std::string rule;
    std::string text; // what is there, what will happen, what is meant
};

// A text file beside the four, whose references are filled in.
struct FilledText {
    std::string name; // in the product's folder
    const Line
        *used; // the first command that fills it in; null: the blurb, which the program shows
    std::vector<TemplateLine> lines;
};

// All that the rules look at.
struct Survey {
    const Product &product;
    const Flow &flow;
    Folder &folder;
    const Disks &disks;
    std::vector<FilledText> texts; // templates, and the blurb last
};

class Report;
struct CommandAt;

// A rule looks at the whole product, or at each command of each section in turn.
struct Rule {
    const char *word;
    Severity severity;
    void (*look)(Survey &survey, Report &report);
    void (*step)(const CommandAt &at, Report &report);
};

// Where a rule puts what it finds.
class Report {
  public:
    void set_rule(const Rule &of);

    void add(const ProductFile &file, const Line &line, const std::string &text);
    void add(const FilledText &file, unsigned line, const std::string &text);
    // On the first line of a file, which may be missing.
    void add(const ProductFile &file, const std::string &text);
    void add(const ProductFile &file, unsigned line, const std::string &text);

    std::vector<Finding> findings;

  private:
    const Rule *rule = nullptr;
};

// A command of a section with the model of the disk before it.
struct CommandAt {
    Survey &survey;
    const std::string &section;
    const SectionView &view;
    const Line &line;
    const copy_cmd &command;
    const Disk &disk;
};

// A family of rules, ended by one without a word.
extern const Rule line_rules[];
extern const Rule reference_rules[];
extern const Rule condition_rules[];
extern const Rule question_rules[];
extern const Rule copy_rules[];
extern const Rule life_rules[];

// All rules by number, null behind the last.
const Rule *check_rule(unsigned number);

// What is found in a product, in the order of the files and their lines, without what its author
// has accepted; `accepted` counts that.
std::vector<Finding> check_product(const Product &product, size_t &accepted);

// The page of a rule, embedded from kit/rules/RULE.txt; null when there is none.
const char *rule_page(const std::string &word);

// The subcommand; status 0 when nothing was found, 1 for findings, 2 when it could not look.
int kit_check(int argc, char **argv);
