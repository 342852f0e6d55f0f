#include "section_view.h"

#include <algorithm>

#include "disk.h"
#include "lib.h"

SectionView::SectionView(const Product &product, const Flow &flow, const std::string &section)
    : asked(asked_in(product, section))
{
    for (const Line *line : entries_of(product.questions, section))
        has_end = has_end || line->question->type == QError;
    for (const Line *line : entries_of(product.copy, section)) {
        const std::string &path = flow.path(line->command->source);
        const SplitPath split = split_path(path);
        if (line->command->type == RmFile)
            removals[path] = line->number;
        if (line->command->type != Chmod)
            continue;
        modes[without_slash(path)] = line->number;
        if (has_wildcard(split.name))
            wildcard_modes[split.directory].emplace_back(line->number, split.name);
    }
}

bool SectionView::is_behind(const Line &line, const LastLines &lines, const std::string &path)
{
    const auto found = lines.find(path);
    return found != lines.end() && found->second > line.number;
}

bool SectionView::removes_behind(const Line &line, const std::string &path) const
{
    return is_behind(line, removals, path);
}

// The mode of a directory is given to all that is in it, too.
bool SectionView::has_mode_behind(const Line &line, const std::string &path) const
{
    for (std::string above = path; !above.empty();
         above.resize(above.find('/') == std::string::npos ? 0 : above.rfind('/')))
        if (is_behind(line, modes, above))
            return true;
    const SplitPath split = split_path(path);
    const auto found = wildcard_modes.find(split.directory);
    return found != wildcard_modes.end() &&
           std::any_of(found->second.begin(), found->second.end(), [&](const auto &mode) {
               return mode.first > line.number &&
                      wild_match(split.name.c_str(), mode.second.c_str());
           });
}
