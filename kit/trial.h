// Trying a product out: its flows, run unattended in a private view, and what differs then.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "difference.h"
#include "ini.h"
#include "product.h"
#include "view.h"

// A product to be tried out.
struct Subject {
    Product product;
    std::string folder;  // its absolute path
    std::string program; // what is started in it: a name in the folder
    std::string brought; // an installer from elsewhere that is put there as that; "": it has one
    std::map<std::string, std::string> settings; // values for the data file
    std::vector<std::string> keeps;              // patterns of paths that may differ
};

// Finds the product of a folder and its program. False with a sentence in `problem`.
bool find_subject(const std::string &folder, Subject &subject, std::string &problem);

// One run of a flow.
struct FlowRun {
    std::string section;     // "install", "upgrade" or "remove"
    bool is_free = false;    // the flow is what the menu offers: an installer that is run again
    unsigned last_line = 0;  // of the copy script that is run; 0: all
    mode_t mask = 022;       // the umask
    std::string folder = {}; // another one than the product's
    std::map<std::string, std::string> settings = {};
};

// The paths that differ, without logs and what may differ.
using State = std::map<std::string, Difference>;

class Trial {
  public:
    explicit Trial(const Subject &of) : subject(of), folders{of.folder} {}
    Trial(const Trial &) = delete;
    Trial &operator=(const Trial &) = delete;

    // Lays down what is done, in this order, before the view is made.
    void plan(const FlowRun &run);
    void plan(ViewStep step) { steps.push_back(std::move(step)); }

    // Makes the view; false with `problem` set.
    bool begin();

    // Does the next thing. The status of its run, -1 with `problem` set when the view has ended.
    int next();

    // What the last runs have told about themselves.
    std::string account() const;

    // What differs now; with `all` also what may differ.
    State state(bool all = false);

    // Where the product's folder is: paths in it are also given without it.
    void add_folder(const std::string &folder) { folders.push_back(folder); }

    std::string problem;

  private:
    bool is_log(const std::string &path) const;
    bool is_kept(const std::string &path) const;

    const Subject &subject;
    std::vector<std::string> folders;
    std::vector<ViewStep> steps;
    size_t done = 0;
    Descriptor told;
    std::unique_ptr<View> view;
};

// The text of a file, to its last byte; "" when it cannot be read.
std::string file_text(const std::string &path);

// Writes a file that is there, or makes it. False when that fails.
bool put_text(const std::string &path, const std::string &text);
