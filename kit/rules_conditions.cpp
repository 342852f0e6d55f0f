// Conditions: controls that never have a value, words that a control never holds, and the three
// rules of the three files.
#include "rules.h"

#include <algorithm>

#include "lib.h"

namespace {

// What a line with a control does when that has no value.
const char *fate_without_value(const ProductFile &file)
{
    switch (file.kind) {
    case FileKind::init:
        return "its name is compared in place of a value";
    case FileKind::questions:
        return "the question is always asked";
    default:
        return "the command always runs";
    }
}

bool is_name_missing(const Survey &survey, const Mention &mention)
{
    return mention.name != "-" && mention.name.find("$(") == std::string::npos &&
           !survey.flow.find(mention.name);
}

void unknown_setting(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions()) {
        if (!is_name_missing(survey, mention))
            continue;
        const std::string near = survey.flow.nearest(mention.name);
        if (mention.role == Role::control) {
            // A literal in the init script may be meant: it switches a line on or off.
            const init_item *probe = mention.line->probe.get();
            if (!probe || s_strcmp(probe->control, probe->compare) != 0)
                report.add(*mention.file, *mention.line,
                           in_quotes(mention.name) + " names no setting: " +
                               fate_without_value(*mention.file) + meant(near));
        } else if (mention.role == Role::source) {
            report.add(*mention.file, *mention.line,
                       in_quotes(mention.name) + " names no setting: the line does nothing" +
                           meant(near));
        }
    }
}

// A word that is taken as it stands because it is not quite the name of a setting.
void nearly_a_name(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions()) {
        if (mention.role != Role::value || !is_name_missing(survey, mention) ||
            mention.name.find_first_of("/$%") != std::string::npos ||
            istrue(mention.name.c_str()) || isfalse(mention.name.c_str()))
            continue;
        const std::string near = survey.flow.nearest(mention.name);
        if (!near.empty())
            report.add(*mention.file, *mention.line,
                       in_quotes(mention.name) + " names no setting and is taken as it stands" +
                           meant(near));
    }
}

// --- Values ----------------------------------------------------------------------------------

const char *control_of(const Line &line)
{
    return line.probe      ? (line.probe->compare ? line.probe->control : nullptr)
           : line.question ? (is_asked(line.question->type) ? line.question->control : nullptr)
           : line.command  ? line.command->control
                           : nullptr;
}

const char *compare_of(const Line &line)
{
    return line.probe      ? line.probe->compare
           : line.question ? line.question->control_cmp
           : line.command  ? line.command->control_cmp
                           : nullptr;
}

void control_too_early(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions()) {
        const bool is_step = mention.role == Role::source;
        if ((mention.role != Role::control && !is_step) || !survey.flow.find(mention.name))
            continue;
        const Value &value = mention.line->question
                                 ? survey.flow.at_load(*mention.line, mention.name)
                                 : survey.flow.at(*mention.line, mention.name);
        if (value.must_be_none())
            report.add(*mention.file, *mention.line,
                       in_quotes(mention.name) + " has no value when this line is come to: " +
                           (is_step ? "it does nothing" : fate_without_value(*mention.file)));
    }
}

// A setting that begins without a value and gets one only on a condition.
void control_perhaps_unset(Survey &survey, Report &report)
{
    std::set<std::string> told;
    for (const Mention &mention : survey.flow.mentions()) {
        const Setting *setting =
            mention.role == Role::control && mention.file->kind != FileKind::init
                ? survey.flow.find(mention.name)
                : nullptr;
        if (!setting || !setting->data || !setting->data->setting->value.empty())
            continue;
        const Value &value = mention.line->question
                                 ? survey.flow.at_load(*mention.line, mention.name)
                                 : survey.flow.at(*mention.line, mention.name);
        if (value.may_be_none && !value.must_be_none() && told.insert(mention.name).second)
            report.add(
                *mention.file, *mention.line,
                in_quotes(mention.name) +
                    " begins without a value and gets one only on a condition: where that does "
                    "not hold, " +
                    fate_without_value(*mention.file));
    }
}

// Whether a value lets the line run, by the rule of its file.
bool lets_run(const ProductFile &file, const std::string &value, const char *compare)
{
    if (!compare)
        return istrue(value.c_str()) != 0;
    return file.kind == FileKind::copy ? s_stricmp(value.c_str(), compare) == 0 : value == compare;
}

// What a control is compared with: a literal, or in questions and commands the value of a setting.
// False when that cannot be known.
bool compared_words(const Survey &survey, const ProductFile &file, const Line &line,
                    std::vector<std::string> &words)
{
    const char *compare = compare_of(line);
    if (!compare)
        return true;
    const Value &value = survey.flow.at(line, compare);
    if (file.kind == FileKind::init || value.must_be_none()) {
        words.emplace_back(compare);
        return true;
    }
    if (!value.is_known())
        return false;
    words.assign(value.texts.begin(), value.texts.end());
    if (value.may_be_none)
        words.emplace_back(compare);
    return true;
}

bool can_hold(const Survey &survey, const ProductFile &file, const Line &line, const Value &control)
{
    std::vector<std::string> words;
    if (!control.is_known() || !compared_words(survey, file, line, words))
        return true;
    if (control.may_be_none && file.kind != FileKind::init)
        return true;
    std::set<std::string> values = control.texts;
    if (control.may_be_none)
        values.insert(control_of(line));
    return std::any_of(values.begin(), values.end(), [&](const std::string &value) {
        return words.empty() ? lets_run(file, value, nullptr)
                             : std::any_of(words.begin(), words.end(), [&](const auto &word) {
                                   return lets_run(file, value, word.c_str());
                               });
    });
}

std::string list_of(const std::set<std::string> &texts)
{
    std::string list;
    size_t left = texts.size();
    for (const std::string &text : texts) {
        left--;
        list += in_quotes(text) + (left > 1 ? ", " : left == 1 ? " or " : "");
    }
    return list;
}

void never_holds(Survey &survey, Report &report)
{
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        const char *control = line.kind == LineKind::entry ? control_of(line) : nullptr;
        if (!control || !survey.flow.find(control))
            return;
        const Value &value = survey.flow.at(line, control);
        // That is for the rule below to say.
        if (file.kind != FileKind::init && compare_of(line) &&
            value.texts.contains(compare_of(line)))
            return;
        if (can_hold(survey, file, line, value))
            return;
        report.add(file, line,
                   in_quotes(control) + " is " + list_of(value.texts) +
                       (value.may_be_none ? " or its own name" : "") +
                       (compare_of(line) ? ", never " + in_quotes(compare_of(line))
                                         : ", which is never true") +
                       ": this line never runs");
    });
}

// "no" and "false" are both no, but not the same word.
void truth_spelling(Survey &survey, Report &report)
{
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        const char *control = line.kind == LineKind::entry ? control_of(line) : nullptr;
        const char *compare = compare_of(line);
        const Setting *setting = control ? survey.flow.find(control) : nullptr;
        if (!setting || !compare || !survey.flow.at(line, compare).must_be_none())
            return;
        for (const std::string &text : survey.flow.at(line, control).texts) {
            const bool is_same_truth = (istrue(text.c_str()) && istrue(compare)) ||
                                       (isfalse(text.c_str()) && isfalse(compare));
            if (is_same_truth && !lets_run(file, text, compare) &&
                can_hold(survey, file, line, survey.flow.at(line, control)))
                report.add(file, line,
                           in_quotes(control) + " may be " + in_quotes(text) +
                               " here, which is not " + in_quotes(compare) +
                               ": words are compared as they stand");
        }
    });
}

// A literal that some setting bears as its name is not compared itself.
void word_is_setting(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions()) {
        if (mention.role != Role::compare)
            continue;
        const Value &compared = survey.flow.at(*mention.line, mention.name);
        const Value &control = survey.flow.at(*mention.line, text_of(control_of(*mention.line)));
        if (compared.must_be_none() || !control.is_known() ||
            !control.texts.contains(mention.name) || compared.texts.contains(mention.name) ||
            !compared.is_known())
            continue;
        report.add(*mention.file, *mention.line,
                   in_quotes(mention.name) +
                       " is the name of a setting, too, and what counts is its value, " +
                       list_of(compared.texts));
    }
}

// A probe whose "-" or missing word makes its condition idle.
void half_condition(Survey &survey, Report &report)
{
    for (const Line *line : entries_of(survey.product.init)) {
        const init_item &probe = *line->probe;
        if (probe.control && !probe.compare)
            report.add(survey.product.init, *line,
                       in_quotes(probe.control) +
                           " is compared with nothing: the line runs whatever its value");
        else if (!probe.control && probe.compare)
            report.add(survey.product.init, *line,
                       "\"-\" is compared with " + in_quotes(probe.compare) +
                           ": the line never runs");
    }
    for (const Line *line : entries_of(survey.product.questions)) {
        const quest &question = *line->question;
        if (is_asked(question.type) && !question.control && question.control_cmp)
            report.add(survey.product.questions, *line,
                       "there is no setting to compare with " + in_quotes(question.control_cmp) +
                           ": the question is always asked");
    }
    for (const Line *line : entries_of(survey.product.copy)) {
        const copy_cmd &command = *line->command;
        if (s_strcmp(command.control, "-") == 0 && command.control_cmp &&
            s_strcmp(command.control_cmp, "-") != 0 && !survey.flow.find("-"))
            report.add(survey.product.copy, *line,
                       "there is no setting to compare with " + in_quotes(command.control_cmp) +
                           ": the command always runs");
    }
}

// --- Results ---------------------------------------------------------------------------------

bool looks_at(const Survey &survey, const Line &line, const std::string &name)
{
    const auto &mentions = survey.flow.mentions_of(line);
    return std::any_of(mentions.begin(), mentions.end(), [&](const Mention *mention) {
        return mention->role != Role::target && mention->name == name;
    });
}

// The name that a step or a command puts "true" or "false" into; "" for any other.
std::string result_of(const Line &line)
{
    if (line.question && line.question->type == QXExist)
        return text_of(line.question->setting);
    return line.command && line.command->type == Exist ? text_of(line.command->dest) : "";
}

bool has_loop(const std::vector<const Line *> &steps)
{
    return std::any_of(steps.begin(), steps.end(),
                       [](const Line *line) { return line->question->type == QLoop; });
}

// The lines of a section in the order in which a run comes by. Where there are jumps no order is
// certain, and only the commands are given.
std::vector<const Line *> run_order(const Survey &survey, const std::string &section)
{
    std::vector<const Line *> lines = entries_of(survey.product.questions, section);
    if (has_loop(lines))
        lines.clear();
    const auto commands = entries_of(survey.product.copy, section);
    lines.insert(lines.end(), commands.begin(), commands.end());
    return lines;
}

const ProductFile &file_of(const Survey &survey, const Line &line)
{
    return line.question ? survey.product.questions : survey.product.copy;
}

template <typename Take> void for_each_run(const Survey &survey, Take take)
{
    for (const Section &section : survey.product.copy.sections)
        if (section.is_read)
            take(run_order(survey, section.name));
}

// For each line the next one behind it that looks at its result or sets that anew; null: none.
std::vector<const Line *> users_of_results(const Survey &survey,
                                           const std::vector<const Line *> &lines)
{
    std::vector<const Line *> users(lines.size());
    std::unordered_map<std::string, const Line *> next; // of each name
    for (size_t at = lines.size(); at-- > 0;) {
        const std::string name = result_of(*lines[at]);
        if (const auto found = next.find(name); found != next.end())
            users[at] = found->second;
        // On a condition it may be set anew or not.
        if (!name.empty() && !control_of(*lines[at]))
            next[name] = lines[at];
        for (const Mention *mention : survey.flow.mentions_of(*lines[at]))
            if (mention->role != Role::target)
                next[mention->name] = lines[at];
    }
    return users;
}

void result_unread(Survey &survey, Report &report)
{
    for_each_run(survey, [&](const std::vector<const Line *> &lines) {
        const std::vector<const Line *> users = users_of_results(survey, lines);
        for (size_t at = 0; at < lines.size(); at++) {
            const std::string name = result_of(*lines[at]);
            const Line *user = users[at];
            if (is_plain_name(name) && !(user && looks_at(survey, *user, name)))
                report.add(file_of(survey, *lines[at]), *lines[at],
                           user ? "nothing looks at " + in_quotes(name) + " before line " +
                                      std::to_string(user->number) + " sets it anew"
                                : "nothing in this section looks at " + in_quotes(name) +
                                      " after this line");
        }
    });
}

std::string judged_by(const Line &line)
{
    if (line.question)
        return line.question->type == QError ? text_of(line.question->setting) : "";
    return line.command->type == Error ? text_of(line.command->source) : "";
}

void judged_again(Survey &survey, Report &report)
{
    for_each_run(survey, [&](const std::vector<const Line *> &lines) {
        std::unordered_map<std::string, const Line *>
            judges; // of names that have not been set since
        for (const Line *line : lines) {
            const std::string name = judged_by(*line);
            if (const auto before = judges.find(name); !name.empty() && before != judges.end())
                report.add(file_of(survey, *line), *line,
                           in_quotes(name) + " has not changed since line " +
                               std::to_string(before->second->number) +
                               " judged it: this never fires");
            judges[name] = line;
            for (const Mention *mention : survey.flow.mentions_of(*line))
                if (mention->role == Role::target)
                    judges.erase(mention->name);
        }
    });
}

// The menu's default is the upgrade for one word only.
void action_value(Survey &survey, Report &report)
{
    const Setting *action = survey.flow.find("action");
    for (const Mention *setter : action->setters) {
        const init_item *probe = setter->line->probe.get();
        if (!probe || probe->mode != ICopy)
            continue;
        const Value &value = survey.flow.at(*setter->line, probe->b);
        std::set<std::string> words = value.texts;
        if (value.may_be_none)
            words.insert(probe->b);
        if (!value.anything && !words.contains("upgrade") && !words.contains("install"))
            report.add(*setter->file, *setter->line,
                       in_quotes(*words.begin()) +
                           " is no entry of the menu: its default stays \"1\" for anything but "
                           "\"upgrade\"");
    }
}

} // namespace

const Rule condition_rules[] = {
    {"unknown-setting", Severity::error, unknown_setting, nullptr},
    {"nearly-a-name", Severity::error, nearly_a_name, nullptr},
    {"control-too-early", Severity::error, control_too_early, nullptr},
    {"control-perhaps-unset", Severity::warning, control_perhaps_unset, nullptr},
    {"truth-spelling", Severity::error, truth_spelling, nullptr},
    {"never-holds", Severity::error, never_holds, nullptr},
    {"word-is-setting", Severity::error, word_is_setting, nullptr},
    {"half-condition", Severity::error, half_condition, nullptr},
    {"result-unread", Severity::warning, result_unread, nullptr},
    {"judged-again", Severity::error, judged_again, nullptr},
    {"action-value", Severity::error, action_value, nullptr},
    end_of_rules,
};
