// What the tests share: a directory for each case, files as text, and the lines of the log.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ini.h"
#include "lib.h"
#include "log.h"

// Writes a file, making the directories above it; its whole content, "" when it cannot be read.
void write_text(const std::string &path, const std::string &text);
std::string read_all(const std::string &path);

// Gives this process mounts that no other sees, an ordinary user under the own id as well; false
// where the machine does not allow it, with errno set.
bool have_own_mounts();

// Every path below a directory, sorted, directories ending in '/', files as "name=content", and
// what is neither by its name alone.
std::vector<std::string> tree_of(const std::string &directory);

// The lines as one text, divided by '|'.
std::string joined(const std::vector<std::string> &lines);

// A store of these settings; the first values of settings named with blanks between, joined,
// "(null)" where there is none.
using Store = Owned<Ini, ini_free>;
Store store_of(std::initializer_list<std::pair<const char *, const char *>> settings);
std::string values_of(const Store &store, const std::string &names);

// A text that may be missing, as text: "(null)" for null.
inline std::string shown(const char *text)
{
    return text ? text : "(null)";
}

// Runs each case in a new directory of its own, which stays behind when the case fails, with a log
// at debug level.
class InDirectory : public ::testing::Test {
  protected:
    InDirectory();
    ~InDirectory() override;

    // The log's lines without time and process: "Error: ..." and so on.
    std::vector<std::string> log_lines() const;

    // Whether the log has a line with exactly this level and text.
    bool logged(const std::string &line) const;

    // The errors that were logged since the last call, divided by '|'.
    std::string new_errors();

    // The absolute path of a name in the case's directory.
    std::string at(const std::string &name) const { return directory + "/" + name; }

    std::string directory;

  private:
    size_t lines_seen = 0;
    Owned<Log, log_free> log;
};

// Gives up root for the rest of the case. Cases about permission call it when their files are made:
// root may do anything.
void become_nobody();
