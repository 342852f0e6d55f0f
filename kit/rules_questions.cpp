// Questions: jumps, texts, and what an unattended run makes of the defaults.
#include "rules.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "lib.h"

namespace {

// Calls back for each section of the question file with its complete lines.
template <typename Take> void for_each_section(const Product &product, Take take)
{
    for (const Section &section : product.questions.sections)
        if (section.is_read)
            take(folded(section.name), entries_of(product.questions, section.name));
}

// --- Jumps -----------------------------------------------------------------------------------

bool is_number(const std::string &text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

void loop_target(Survey &survey, Report &report)
{
    for_each_section(survey.product, [&](const std::string &, const auto &lines) {
        for (const Line *line : lines) {
            if (line->question->type != QLoop)
                continue;
            const std::string target = line->question->text;
            const int number = s_atoi(target.c_str());
            const auto say = [&](const std::string &text) {
                report.add(survey.product.questions, *line, text);
            };
            if (!is_number(target))
                say(in_quotes(target) + " is no number of a line: the jump goes to line " +
                    std::to_string(std::max(0, number)));
            else if (number > static_cast<int>(lines.size()))
                say("the section has the lines 0 to " + std::to_string(lines.size() - 1) +
                    ", so a jump to " + target + " ends it");
            else if (number == line->entry + 1)
                say("the jump leads to the next line, where the questions go on anyway");
        }
    });
}

// What a line gives a value, and what it looks at before anything else.
std::string made_by(const Line &line)
{
    const QType type = line.question->type;
    return type == QError || type == QLoop ? "" : text_of(line.question->setting);
}

std::string looked_at_by(const Line &line)
{
    const QType type = line.question->type;
    return type == QCopy || type == QXExist ? "" : text_of(line.question->setting);
}

// A line that uses what the one before it has just found out is entered from there.
void loop_into_steps(Survey &survey, Report &report)
{
    for_each_section(survey.product, [&](const std::string &, const auto &lines) {
        for (const Line *line : lines) {
            const quest &question = *line->question;
            if (question.type != QLoop || !is_number(question.text))
                continue;
            const auto target = static_cast<size_t>(s_atoi(question.text));
            if (target == 0 || target >= lines.size() || line->entry == static_cast<int>(target))
                continue;
            const Line &before = *lines[target - 1];
            const bool is_prepared = !is_asked(before.question->type) && !made_by(before).empty() &&
                                     made_by(before) == looked_at_by(*lines[target]);
            if (is_prepared)
                report.add(survey.product.questions, *line,
                           "the jump leads between " + place_of(survey.product.questions, before) +
                               " and the line that needs its outcome");
        }
    });
}

void loop_without_question(Survey &survey, Report &report)
{
    for_each_section(survey.product, [&](const std::string &, const auto &lines) {
        for (size_t at = 0; at < lines.size(); at++) {
            const quest &question = *lines[at]->question;
            const auto target = static_cast<size_t>(std::max(0, s_atoi(question.text)));
            if (question.type != QLoop || target > at)
                continue;
            const auto first = lines.begin() + static_cast<long>(target);
            const auto last = lines.begin() + static_cast<long>(at);
            const bool asks = std::any_of(
                first, last, [](const Line *line) { return is_asked(line->question->type); });
            // A jump ahead or an end in between may be the way out.
            const bool leaves = std::any_of(first, last, [&](const Line *line) {
                return line->question->type == QError ||
                       (line->question->type == QLoop &&
                        s_atoi(line->question->text) > static_cast<int>(at));
            });
            if (!asks && !leaves)
                report.add(
                    survey.product.questions, *lines[at],
                    "nothing is asked on the way back here, so nothing changes: the flow is given "
                    "up after 1000 rounds");
        }
    });
}

// --- Texts -----------------------------------------------------------------------------------

void escape_in_text(Survey &survey, Report &report)
{
    for (const Line *line : entries_of(survey.product.questions)) {
        const QType type = line->question->type;
        if (line->text.find('\\') != std::string::npos && type != QXExist && type != QLoop &&
            type != QCopy)
            report.add(
                survey.product.questions, *line,
                "the backslash goes away, and for each one the last character of the text is "
                "shown again");
    }
}

bool shows_text(const quest &question)
{
    return question.type != QCopy && question.type != QXExist && question.type != QLoop;
}

// The help column is easily forgotten: then the text loses its first word to it.
void help_column(Survey &survey, Report &report)
{
    size_t dashes = 0;
    size_t words = 0;
    const auto entries = entries_of(survey.product.questions);
    for (const Line *line : entries)
        if (shows_text(*line->question))
            (s_strcmp(line->question->help_id, "-") == 0 ? dashes : words)++;
    for (const Line *line : entries) {
        const quest &question = *line->question;
        if (!shows_text(question))
            continue;
        const std::string help = text_of(question.help_id);
        if (help != "-" && dashes >= words)
            report.add(survey.product.questions, *line,
                       in_quotes(help) + " stands in the column for the help id and is not shown");
        else if (text_of(question.text).starts_with("- "))
            report.add(survey.product.questions, *line,
                       "the text that is shown begins with \"- \": a column too many?");
    }
}

// Only the upgrade fills in the text of Error.
void reference_in_error(Survey &survey, Report &report)
{
    for_each_section(survey.product, [&](const std::string &section, const auto &lines) {
        for (const Line *line : lines) {
            Reference reference;
            if (section != "upgrade" && line->question->type == QError &&
                find_reference(line->question->text, reference) && reference.end &&
                survey.flow.find(reference.name))
                report.add(survey.product.questions, *line,
                           reference_to(reference.name) +
                               " is filled in only in [upgrade], and shown as written here");
        }
    });
}

// --- Defaults --------------------------------------------------------------------------------

template <typename Take> void for_each_asked(Survey &survey, Take take)
{
    for_each_section(survey.product, [&](const std::string &section, const auto &lines) {
        for (const Line *line : lines)
            if (is_asked(line->question->type))
                take(section, *line, survey.flow.at_load(*line, line->question->setting));
    });
}

void no_default(Survey &survey, Report &report)
{
    for_each_asked(survey, [&](const std::string &, const Line &line, const Value &value) {
        if (value.must_be_none())
            report.add(survey.product.questions, line,
                       "under -automate this takes the answer before it: " +
                           in_quotes(line.question->setting) + " has no default");
    });
}

void default_is_command(Survey &survey, Report &report)
{
    std::set<std::string> told;
    for_each_asked(survey, [&](const std::string &, const Line &line, const Value &value) {
        const Setting *setting = survey.flow.find(line.question->setting);
        for (const std::string &text : value.texts) {
            if ((s_stricmp(text.c_str(), "q") != 0 && s_stricmp(text.c_str(), "b") != 0) ||
                (line.question->type & QYN) || !told.insert(line.question->setting).second)
                continue;
            const std::string what = "the default " + in_quotes(text) +
                                     " is what leads back, to the " +
                                     (folded(text) == "q" ? "menu" : "line before") +
                                     ": it is never taken for an answer";
            if (setting->data)
                report.add(survey.product.data, *setting->data, what);
            else
                report.add(survey.product.questions, line, what);
        }
    });
}

void default_not_truth(Survey &survey, Report &report)
{
    for_each_asked(survey, [&](const std::string &, const Line &line, const Value &value) {
        const std::string *text = value.only_text();
        if ((line.question->type & QYN) && text && !istrue(text->c_str()) &&
            !isfalse(text->c_str()))
            report.add(survey.product.questions, line,
                       "the default " + in_quotes(*text) +
                           " is neither true nor false, and counts as a no");
    });
}

// A default that its own type refuses: nobody is there to give another.
void default_refused(Survey &survey, Report &report)
{
    for_each_asked(survey, [&](const std::string &section, const Line &line, const Value &value) {
        const QType type = line.question->type;
        for (const std::string &text : value.texts)
            if (type == QFileName && text.find_first_of("/.") != std::string::npos) {
                report.add(survey.product.questions, line,
                           "\"FileName\" takes directory and ending off the default " +
                               in_quotes(text));
                return;
            }
        if (type == QDirEmpty && value.texts.contains("$(current_dir)")) {
            report.add(survey.product.questions, line,
                       "the default is the folder of the installer, which is never empty: an "
                       "unattended run ends here");
            return;
        }
        const std::string *text = value.only_text();
        if (!text)
            return;
        const std::string path = survey.flow.path(*text);
        const bool must_exist = (type & QExist) != 0;
        const Disk &disk = survey.disks.before(section);
        if (must_exist && is_in_folder(path) && !disk.may_have(path) &&
            !disk.makes_at(reference_to(line.question->setting)))
            report.add(survey.product.questions, line,
                       "the default is the path " + in_quotes(path) +
                           ", which is not in the folder: an unattended run ends here");
        else if (type == QDirEmpty && is_in_folder(path) && !survey.folder.list(path + "/").empty())
            report.add(survey.product.questions, line,
                       "the default " + in_quotes(*text) +
                           " is never empty: an unattended run ends here");
    });
}

// A step after a question that its default can never pass.
void default_stops(Survey &survey, Report &report)
{
    for_each_section(survey.product, [&](const std::string &section, const auto &lines) {
        if (section != "install" && section != "upgrade")
            return;
        std::map<std::string, std::vector<std::string>> stops; // defaults that are a no, by setting
        for (const Line *line : lines) {
            const quest &question = *line->question;
            const std::string setting = text_of(question.setting);
            if (question.type == QError)
                for (const std::string &text : stops[setting])
                    report.add(survey.product.questions, *line,
                               "the default of " + in_quotes(setting) + " is " + in_quotes(text) +
                                   ": an unattended run always ends here");
            if (!(question.type & QYN) || question.control)
                continue;
            const std::string *text = survey.flow.at_load(*line, setting).only_text();
            if (text && !istrue(text->c_str()))
                stops[setting].push_back(*text);
        }
    });
}

// The settings that the steps and commands of each section look at.
std::map<std::string, std::set<std::string>> looked_at_by_lines(const Flow &flow)
{
    std::map<std::string, std::set<std::string>> names;
    for (const Mention &mention : flow.mentions())
        if (mention.role != Role::target && mention.file->kind >= FileKind::questions)
            names[section_of(*mention.file, *mention.line)].insert(mention.name);
    return names;
}

// Adds those that the texts look at which a section fills in. False when one of its templates
// cannot be read here.
bool add_looked_at_in_texts(const Survey &survey, const std::string &section,
                            std::set<std::string> &names)
{
    std::set<std::string> templates;
    for (const Line *line : entries_of(survey.product.copy, section))
        if (line->command->type == CpyIni)
            templates.insert(survey.flow.path(line->command->source));
    for (const FilledText &text : survey.texts) {
        const bool is_filled = text.used ? templates.erase(text.name) > 0 : section == "install";
        if (!is_filled)
            continue;
        for (const TemplateLine &line : text.lines)
            for_each_reference(line.text.c_str(),
                               [&](const Reference &reference) { names.insert(reference.name); });
    }
    return templates.empty();
}

void unused_answer(Survey &survey, Report &report)
{
    auto looked_at = looked_at_by_lines(survey.flow);
    for_each_section(survey.product, [&](const std::string &section, const auto &lines) {
        std::set<std::string> &names = looked_at[section];
        if (!find_section(survey.product.copy, section) ||
            !add_looked_at_in_texts(survey, section, names))
            return;
        for (const Line *line : lines)
            if (is_asked(line->question->type) && !names.contains(line->question->setting) &&
                survey.flow.find(line->question->setting)->uses > 0)
                report.add(survey.product.questions, *line,
                           "nothing in this section looks at the answer " +
                               in_quotes(line->question->setting) +
                               ": whatever it is comes to the same");
    });
}

void never_empty_again(Survey &survey, Report &report)
{
    const Disk &installed = survey.disks.before("upgrade");
    for_each_asked(survey, [&](const std::string &section, const Line &line, const Value &) {
        if (line.question->type != QDirEmpty || section == "install")
            return;
        const std::string directory = survey.flow.path(reference_to(line.question->setting));
        const auto inside = installed.made().lower_bound(directory + "/");
        if (inside != installed.made().end() && inside->first.starts_with(directory + "/"))
            report.add(survey.product.questions, line,
                       "install puts files into " + directory +
                           ": it is not empty here, and no such answer is taken");
    });
}

} // namespace

const Rule question_rules[] = {
    {"loop-target", Severity::error, loop_target, nullptr},
    {"loop-into-steps", Severity::error, loop_into_steps, nullptr},
    {"loop-without-question", Severity::error, loop_without_question, nullptr},
    {"escape-in-text", Severity::error, escape_in_text, nullptr},
    {"help-column", Severity::warning, help_column, nullptr},
    {"reference-in-error", Severity::error, reference_in_error, nullptr},
    {"no-default", Severity::warning, no_default, nullptr},
    {"default-is-command", Severity::error, default_is_command, nullptr},
    {"default-not-truth", Severity::warning, default_not_truth, nullptr},
    {"default-refused", Severity::error, default_refused, nullptr},
    {"default-stops", Severity::warning, default_stops, nullptr},
    {"unused-answer", Severity::warning, unused_answer, nullptr},
    {"never-empty-again", Severity::error, never_empty_again, nullptr},
    end_of_rules,
};
