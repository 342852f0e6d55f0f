// What the commands of a section ask about the rest of it, found out once.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "flow.h"
#include "product.h"

class SectionView {
  public:
    SectionView(const Product &product, const Flow &flow, const std::string &section);

    // True for the setting of one of its questions.
    bool asks_for(const std::string &setting) const { return asked.contains(setting); }
    // True when one of its steps may end the flow before its commands run.
    bool may_end() const { return has_end; }
    // True when a line behind one removes the file of that path, or gives the path a mode.
    bool removes_behind(const Line &line, const std::string &path) const;
    bool has_mode_behind(const Line &line, const std::string &path) const;

  private:
    using LastLines = std::map<std::string, unsigned>; // the number of the last line, by path

    static bool is_behind(const Line &line, const LastLines &lines, const std::string &path);

    std::set<std::string> asked;
    bool has_end = false;
    LastLines removals;
    LastLines modes;
    // The number of every line, and its pattern, by directory.
    std::map<std::string, std::vector<std::pair<unsigned, std::string>>> wildcard_modes;
};
