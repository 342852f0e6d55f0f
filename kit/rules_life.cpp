// The life of a product: what install makes and remove forgets, what is noted and not read back.
#include "rules.h"

#include <algorithm>

#include "lib.h"

namespace {

// What the commands of [remove] can take, whatever their conditions.
class Removals {
  public:
    explicit Removals(const Survey &survey)
    {
        for (const Line *line : entries_of(survey.product.copy, "remove")) {
            const CType type = line->command->type;
            const std::string path = survey.flow.path(line->command->source);
            const SplitPath split = split_path(path);
            if (type == Rename)
                renamed.insert(without_slash(path));
            else if ((type == RmFile || type == RmDir) && is_plain(split.name))
                names.emplace(type, path);
            else if (type == RmFile || type == RmDir)
                patterns[split.directory].emplace_back(type, split.name.empty() ? "*" : split.name);
        }
    }

    // A directory that goes takes along what is in it.
    bool take(const std::string &path) const
    {
        if (matches(path, RmFile))
            return true;
        for (std::string part = path; !part.empty();) {
            if (matches(part, RmDir) || renamed.contains(part))
                return true;
            const std::string above = without_slash(split_path(part).directory);
            if (above == part)
                break;
            part = above;
        }
        return false;
    }

  private:
    static bool is_plain(const std::string &name) { return !name.empty() && !has_wildcard(name); }

    bool matches(const std::string &path, CType type) const
    {
        if (names.contains({type, path}))
            return true;
        const SplitPath split = split_path(path);
        const auto found = patterns.find(split.directory);
        return found != patterns.end() &&
               std::any_of(found->second.begin(), found->second.end(), [&](const auto &pattern) {
                   return pattern.first == type &&
                          wild_match(split.name.c_str(), pattern.second.c_str());
               });
    }

    std::map<std::string, std::vector<std::pair<CType, std::string>>> patterns; // by directory
    std::set<std::pair<CType, std::string>> names;
    std::set<std::string> renamed;
};

// A directory that a person chose among those that were there, or that is not the product's alone.
bool is_shared(const Survey &survey, const std::string &path)
{
    const std::string name = only_reference(path);
    const Setting *setting = name.empty() ? nullptr : survey.flow.find(name);
    if (!setting)
        return !name.empty() || path.find('/') == std::string::npos;
    return std::any_of(setting->setters.begin(), setting->setters.end(), [](const Mention *one) {
        return one->file->kind == FileKind::init ||
               (one->file->kind == FileKind::questions && one->line->question->type != QDir &&
                one->line->question->type != QDirEmpty);
    });
}

void never_removed(Survey &survey, Report &report)
{
    if (!find_section(survey.product.copy, "remove"))
        return;
    const Removals removals(survey);
    std::set<const Line *> told;
    for (const auto &[path, what] : survey.disks.before("remove").made()) {
        const bool is_of_flow = what.line->command && !is_separator(path[0]);
        if (!is_of_flow || told.contains(what.line) || removals.take(path))
            continue;
        if (what.is_directory &&
            (what.line->command->type != MkDir || is_shared(survey, path) ||
             without_slash(survey.flow.path(what.line->command->source)) != path))
            continue;
        told.insert(what.line);
        report.add(survey.product.copy, *what.line,
                   in_quotes(path) + " is made here, and no command of [remove] takes it away");
    }
}

// --- Notes -----------------------------------------------------------------------------------

// True when the path is of this product and nothing writes or ships it.
bool is_nowhere(const Survey &survey, const std::string &path)
{
    return !path.empty() && !is_separator(path[0]) && !survey.disks.written().contains(path) &&
           !(is_in_folder(path) && !survey.folder.matches(path).empty());
}

void note_unwritten(Survey &survey, Report &report)
{
    for (const Line *line : entries_of(survey.product.init)) {
        const init_item &probe = *line->probe;
        if (probe.mode != IRFile && probe.mode != IExist)
            continue;
        const std::string path = without_slash(survey.flow.path(probe.a));
        if (!is_nowhere(survey, path))
            continue;
        const std::string near = survey.disks.nearest_written(path);
        const bool is_note = probe.mode == IRFile && is_in_folder(path);
        if (is_note || !near.empty())
            report.add(
                survey.product.init, *line,
                "no command writes " + in_quotes(path) +
                    (probe.mode == IRFile ? ": there is nothing to read" : ": it is never there") +
                    meant(near));
    }
}

// The same for what commands and questions look for.
void looked_for_nowhere(Survey &survey, Report &report)
{
    const auto look = [&](const ProductFile &file, const Line &line, const char *field) {
        const std::string path = without_slash(survey.flow.path(field));
        const std::string near = is_nowhere(survey, path) ? survey.disks.nearest_written(path) : "";
        if (!near.empty())
            report.add(file, line,
                       "no command makes " + in_quotes(path) + ": it is never there" + meant(near));
    };
    for (const Line *line : entries_of(survey.product.questions))
        if (line->question->type == QXExist)
            look(survey.product.questions, *line, line->question->text);
    for (const Line *line : entries_of(survey.product.copy))
        if (line->command->type == Exist || line->command->type == RmFile ||
            line->command->type == RmDir)
            if (std::string(line->command->source).find_first_of("*?") == std::string::npos)
                look(survey.product.copy, *line, line->command->source);
}

// A product that reads some of its notes back means to read all that lie beside them.
void note_unread(Survey &survey, Report &report)
{
    const std::set<std::string> &written = survey.disks.written();
    std::set<std::string> read;
    std::set<std::string> directories;
    const auto add = [&](const char *field, bool is_note) {
        const std::string path = survey.flow.path(text_of(field));
        read.insert(path);
        if (is_note && is_in_folder(path) && written.contains(path))
            directories.insert(split_path(path).directory);
    };
    for (const Line *line : entries_of(survey.product.init))
        if (line->probe->mode == IRFile || line->probe->mode == IExist)
            add(line->probe->a, line->probe->mode == IRFile);
    for (const Line *line : entries_of(survey.product.questions))
        if (line->question->type == QXExist)
            add(line->question->text, false);
    for (const Line *line : entries_of(survey.product.copy))
        if (line->command->type == Exist || line->command->type == CpyFile)
            add(line->command->source, false);
    std::set<std::string> told;
    for (const Line *line : entries_of(survey.product.copy, "install")) {
        if (line->command->type != WFile)
            continue;
        const std::string path = survey.flow.path(line->command->source);
        if (directories.contains(split_path(path).directory) && !read.contains(path) &&
            told.insert(path).second)
            report.add(survey.product.copy, *line,
                       in_quotes(path) + " is noted here, and nothing ever reads it back");
    }
}

// What is made before the note of it cannot be removed when the install fails in between.
void note_last(Survey &survey, Report &report)
{
    std::set<std::string> read;
    for (const Line *line : entries_of(survey.product.init))
        if (line->probe->mode == IRFile)
            read.insert(survey.flow.path(line->probe->a));
    bool has_made = false;
    for (const Line *line : entries_of(survey.product.copy, "install")) {
        const copy_cmd &command = *line->command;
        if (command.type == WFile && read.contains(survey.flow.path(command.source))) {
            if (has_made && find_section(survey.product.copy, "remove"))
                report.add(
                    survey.product.copy, *line,
                    "this note comes after what it tells of: an install that fails before it "
                    "cannot be found again by remove");
            return;
        }
        has_made =
            has_made || command.type == CpyFile || command.type == CpyDir || command.type == CpyIni;
    }
}

// --- Answers ---------------------------------------------------------------------------------

// What install asks and upgrade or remove use without asking is the default there, not the answer.
void answer_lost(Survey &survey, Report &report)
{
    const Product &product = survey.product;
    std::map<std::string, std::set<std::string>> asked;
    for (const char *section : {"install", "upgrade", "remove"})
        asked[section] = asked_in(product, section);
    std::map<std::string, const Line *> notes; // of install, the first of each setting
    for (const Line *line : entries_of(product.copy, "install"))
        if (line->command->type == WFile)
            notes.emplace(line->command->dest, line);
    std::set<std::string> told;
    for (const Mention &mention : survey.flow.mentions()) {
        if (mention.file->kind != FileKind::copy || mention.role != Role::reference ||
            mention.line->command->control || mention.line->command->type == Error)
            continue;
        const std::string section = section_of(product.copy, *mention.line);
        const Setting *setting = survey.flow.find(mention.name);
        const bool is_later = section == "upgrade" || section == "remove";
        if (!is_later || !setting || survey.flow.at_load(*mention.line, mention.name).anything ||
            !asked["install"].contains(mention.name) || asked[section].contains(mention.name) ||
            !told.insert(section + " " + mention.name).second)
            continue;
        if (const auto note = notes.find(mention.name); note != notes.end()) {
            report.add(product.copy, *note->second,
                       in_quotes(mention.name) +
                           " is noted here, and nothing reads the note back: [" + section +
                           "] has the default");
            continue;
        }
        report.add(product.copy, *mention.line,
                   "only [install] asks for " + in_quotes(mention.name) +
                       ", and nobody noted the answer down: here it has its default");
    }
}

} // namespace

const Rule life_rules[] = {
    {"never-removed", Severity::warning, never_removed, nullptr},
    {"note-unwritten", Severity::error, note_unwritten, nullptr},
    {"looked-for-nowhere", Severity::error, looked_for_nowhere, nullptr},
    {"note-unread", Severity::warning, note_unread, nullptr},
    {"note-last", Severity::warning, note_last, nullptr},
    {"answer-lost", Severity::error, answer_lost, nullptr},
    end_of_rules,
};
