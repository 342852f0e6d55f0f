// References and settings: names that lead nowhere, values that are never set or never looked at.
#include "rules.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <unordered_map>
#include <utility>

#include "lib.h"

namespace {

// --- Unknown names ---------------------------------------------------------------------------

// What a text with an unknown reference shows, by the place that it is filled in at.
const char *fate_of_reference(const ProductFile &file, const Line &line)
{
    switch (file.kind) {
    case FileKind::data:
        return "stays as written in the value";
    case FileKind::init:
        return "is left out of the path";
    case FileKind::questions:
        return line.question->type == QError ? "says nothing" : "is left out of the text";
    case FileKind::copy:
        break;
    }
    return line.command->type == Error ? "stays as written in the message"
                                       : "stays as written in the path";
}

bool is_known_reference(const Survey &survey, const Mention &mention)
{
    // Inside the data file names are found without regard to case, but only those of this file.
    return survey.flow.find(mention.name) ||
           (mention.file->kind == FileKind::data && survey.flow.data_name(mention.name));
}

void unknown_reference(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions())
        if (mention.role == Role::reference && !is_known_reference(survey, mention))
            report.add(*mention.file, *mention.line,
                       reference_to(mention.name) + " names no setting, and " +
                           fate_of_reference(*mention.file, *mention.line) +
                           meant(survey.flow.nearest(mention.name)));
}

// A template keeps what names no setting, as a shell script wants it; a name that is nearly one,
// and a word in a text that is no program, is a mistake.
bool is_doubtful_reference(const FilledText &text, const std::string &name, const std::string &near)
{
    if (!text.used || !near.empty())
        return true;
    const bool is_program = !text.lines.empty() && text.lines[0].text.starts_with("#!");
    const bool is_makefile = text.name.find("akefile") != std::string::npos;
    return is_plain_name(name) && !is_program && !is_makefile;
}

void unknown_in_text(Survey &survey, Report &report)
{
    for (const FilledText &text : survey.texts)
        for (const TemplateLine &line : text.lines)
            for_each_reference(line.text.c_str(), [&](const Reference &reference) {
                if (!reference.end || survey.flow.find(reference.name))
                    return;
                const std::string near = survey.flow.nearest(reference.name);
                if (is_doubtful_reference(text, reference.name, near))
                    report.add(text, line.number,
                               reference_to(reference.name) + " names no setting, and " +
                                   (text.used ? "stays as written" : "is left out") + meant(near));
            });
}

void open_reference(Survey &survey, Report &report)
{
    const auto is_open = [](const char *text) {
        bool open = false;
        for_each_reference(text, [&](const Reference &reference) { open = !reference.end; });
        return open;
    };
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (line.kind == LineKind::entry && is_open(line.text.c_str()))
            report.add(file, line,
                       std::string("the reference has no \")\": ") +
                           (file.kind == FileKind::copy
                                ? "the field loses its last character and keeps the rest as written"
                                : "it stays as written"));
    });
    for (const FilledText &text : survey.texts)
        for (const TemplateLine &line : text.lines)
            if (is_open(line.text.c_str()))
                report.add(text, line.number,
                           text.used
                               ? "the reference has no \")\" on its line, which loses its last "
                                 "character"
                               : "the reference has no \")\" on its line and stays as written");
}

// --- Other ways to write a reference ---------------------------------------------------------

// The name in a "${name}" that a setting bears; "" when there is none.
std::string braced_setting(const Flow &flow, const std::string &text)
{
    for (size_t at = text.find("${"); at != std::string::npos; at = text.find("${", at + 2)) {
        std::string name = text.substr(at + 2, text.find('}', at) - at - 2);
        if (flow.find(name))
            return name;
    }
    return "";
}

// The name in a "$name" that a setting bears; "" when there is none.
std::string bare_setting(const Flow &flow, const std::string &text)
{
    for (size_t at = text.find('$'); at != std::string::npos; at = text.find('$', at + 1)) {
        size_t end = at + 1;
        while (end < text.size() && is_plain_name(text.substr(end, 1)))
            end++;
        std::string name = text.substr(at + 1, end - at - 1);
        if (flow.find(name))
            return name;
    }
    return "";
}

void braces(Survey &survey, Report &report)
{
    const auto say = [](const std::string &name) {
        return "only " + in_quotes(reference_to(name)) + " is a reference: this stays as written";
    };
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        std::string name = braced_setting(survey.flow, line.text);
        if (name.empty())
            name = bare_setting(survey.flow, line.text);
        if (line.kind == LineKind::entry && !name.empty())
            report.add(file, line, say(name));
    });
    for (const FilledText &text : survey.texts) {
        const bool is_program = !text.lines.empty() && text.lines[0].text.starts_with("#!");
        for (const TemplateLine &line : text.lines) {
            const std::string name = is_program ? "" : braced_setting(survey.flow, line.text);
            if (!name.empty())
                report.add(text, line.number, say(name));
        }
    }
}

bool is_unfilled_name(const std::string &word)
{
    return word.find("$(") != std::string::npos;
}

// What stands in a column that takes a name, and what it is called.
void reference_as_name(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions())
        if (mention.role != Role::reference && is_unfilled_name(mention.name))
            report.add(*mention.file, *mention.line,
                       in_quotes(mention.name) +
                           " stands where a name belongs, and this column is never filled in" +
                           meant(only_reference(mention.name)));
    for (const Line *line : entries_of(survey.product.copy))
        if (is_unfilled_name(text_of(line->command->not_)))
            report.add(survey.product.copy, *line,
                       in_quotes(line->command->not_) +
                           " stands in the column for what is left out, which is never filled in");
}

// A setting's column that holds a path or nothing.
void no_setting_name(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions()) {
        if (mention.role != Role::target || is_unfilled_name(mention.name))
            continue;
        if (mention.name == "-")
            report.add(
                *mention.file, *mention.line,
                "\"-\" stands where the name of a setting belongs: a setting of that name is made");
        else if (mention.name.find('/') != std::string::npos)
            report.add(*mention.file, *mention.line,
                       in_quotes(mention.name) + " stands where the name of a setting belongs");
    }
}

// --- The data file ---------------------------------------------------------------------------

void built_in(Survey &survey, Report &report)
{
    for (const Line *line : entries_of(survey.product.data)) {
        const Setting *setting = survey.flow.find(line->setting->name);
        if (setting && setting->built_in)
            report.add(survey.product.data, *line,
                       in_quotes(line->setting->name) +
                           " is a setting of the program's own, which is found first: this value "
                           "never counts");
    }
    for (const Mention &mention : survey.flow.mentions())
        if (mention.role == Role::target && mention.name != "action" &&
            survey.flow.find(mention.name)->built_in)
            report.add(*mention.file, *mention.line,
                       in_quotes(mention.name) +
                           " is a setting of the program's own, which nothing can change");
}

void repeated_setting(Survey &survey, Report &report)
{
    std::set<std::string> names;
    for (const Line *line : entries_of(survey.product.data))
        if (!names.insert(line->setting->name).second)
            report.add(survey.product.data, *line,
                       in_quotes(line->setting->name) + " has a line above, and only that counts");
}

void doubled_name(Survey &survey, Report &report)
{
    for (const Line *line : entries_of(survey.product.data))
        if (line->setting->value.starts_with(line->setting->name + " "))
            report.add(survey.product.data, *line,
                       "the value begins with the name of its own setting");
    for (const Line *line : entries_of(survey.product.copy))
        if (line->command->type == Error &&
            text_of(line->command->dest).starts_with(text_of(line->command->source) + " "))
            report.add(survey.product.copy, *line,
                       "the message begins with the name of its own setting, " +
                           in_quotes(line->command->source));
}

// No part of the program knows a home directory by "~".
void tilde(Survey &survey, Report &report)
{
    const auto is_home = [](const char *field) { return text_of(field).starts_with("~/"); };
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        const bool is_found =
            line.kind == LineKind::entry &&
            ((line.setting && is_home(line.setting->value.c_str())) ||
             (line.probe && line.probe->mode != ICopy && is_home(line.probe->a)) ||
             (line.question && line.question->type == QXExist && is_home(line.question->text)) ||
             (line.command && (is_home(line.command->source) || is_home(line.command->dest))));
        if (is_found)
            report.add(file, line, "\"~\" is no home directory here, but a name like any other");
    });
}

void blurb_name(Survey &survey, Report &report)
{
    for (const FolderEntry &entry : survey.folder.list(""))
        if (entry.name != "blurb.txt" && survey.folder.matches("blurb.txt").empty() &&
            distance(folded(entry.name), "blurb.txt", 1) <= 1)
            report.add(FilledText{.name = entry.name, .used = nullptr, .lines = {}}, 1,
                       "the text at the end of an install is read from \"blurb.txt\" alone");
}

// The references between the values of the data file, whose settings go by numbers.
class References {
  public:
    explicit References(const Flow &flow)
    {
        for (const auto &[name, setting] : flow.settings()) {
            // A value for a setting of the program's own never counts.
            if (!setting.data || setting.built_in)
                continue;
            const size_t from = number_of(name);
            for_each_reference(setting.data->setting->value.c_str(), [&](const Reference &one) {
                const std::string *to = one.end ? flow.data_name(one.name) : nullptr;
                if (!to)
                    return;
                const size_t number = number_of(*to);
                references[from].push_back(number);
            });
        }
        seen_in.resize(references.size());
    }

    // True when a setting's value refers to itself, on whatever way.
    bool is_cycle(const std::string &name)
    {
        const auto from = numbers.find(name);
        if (from == numbers.end())
            return false;
        std::vector<size_t> next = {from->second};
        search++;
        for (size_t seen = 0; !next.empty() && seen < 200; seen++) {
            const size_t number = next.back();
            next.pop_back();
            for (const size_t to : references[number]) {
                if (to == from->second)
                    return true;
                if (std::exchange(seen_in[to], search) != search)
                    next.push_back(to);
            }
        }
        return false;
    }

  private:
    size_t number_of(const std::string &name)
    {
        const auto [place, is_new] = numbers.try_emplace(name, references.size());
        if (is_new)
            references.emplace_back();
        return place->second;
    }

    std::unordered_map<std::string, size_t> numbers;
    std::vector<std::vector<size_t>> references; // of each number, to others
    std::vector<size_t> seen_in;                 // the last search that came to each
    size_t search = 0;
};

void reference_cycle(Survey &survey, Report &report)
{
    References references(survey.flow);
    for (const Line *line : entries_of(survey.product.data))
        if (line->setting->value.find("$(") != std::string::npos &&
            references.is_cycle(line->setting->name))
            report.add(
                survey.product.data, *line,
                "the value refers to itself in the end: it is given up after 100 replacements");
}

// In the data file a reference to a setting without a value, and to "action", leaves nothing.
void empty_reference(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions()) {
        if (mention.role != Role::reference || mention.file->kind != FileKind::data)
            continue;
        const Setting *setting = survey.flow.find(mention.name);
        if (mention.name == "action" ||
            (setting && setting->data && setting->data->setting->value.empty() &&
             !setting->built_in))
            report.add(*mention.file, *mention.line,
                       reference_to(mention.name) +
                           " is filled in when the file has been read, before anything gives it a "
                           "value: it leaves nothing");
    }
}

// --- Set and looked at -----------------------------------------------------------------------

// Names that a text fills in.
std::set<std::string> names_in_texts(const Survey &survey)
{
    std::set<std::string> names;
    for (const FilledText &text : survey.texts)
        for (const TemplateLine &line : text.lines)
            for_each_reference(line.text.c_str(),
                               [&](const Reference &reference) { names.insert(reference.name); });
    return names;
}

void unused_setting(Survey &survey, Report &report)
{
    if (survey.product.copy.lines.empty() || survey.product.questions.lines.empty())
        return;
    const std::set<std::string> in_texts = names_in_texts(survey);
    std::set<std::string> folded_references;
    for (const Mention &mention : survey.flow.mentions())
        if (mention.role == Role::reference && mention.file->kind == FileKind::data)
            folded_references.insert(folded(mention.name));
    for (const auto &[name, setting] : survey.flow.settings()) {
        // Everybody writes down what the product is and which version of it.
        if (setting.built_in || setting.uses > 0 || name == "product" || name == "version" ||
            in_texts.contains(name) || !is_plain_name(name) ||
            folded_references.contains(folded(name)))
            continue;
        if (setting.data)
            report.add(survey.product.data, *setting.data,
                       in_quotes(name) + (setting.setters.empty()
                                              ? " is used nowhere"
                                              : " gets a value, and nothing ever looks at it"));
        else
            report.add(*setting.setters[0]->file, *setting.setters[0]->line,
                       in_quotes(name) + " gets a value, and nothing ever looks at it" +
                           meant(survey.flow.nearest_other(name)));
    }
}

void never_set(Survey &survey, Report &report)
{
    const std::set<std::string> in_texts = names_in_texts(survey);
    for (const auto &[name, setting] : survey.flow.settings())
        if (setting.data && !setting.built_in && setting.setters.empty() &&
            setting.data->setting->value.empty() && (setting.uses > 0 || in_texts.contains(name)))
            report.add(survey.product.data, *setting.data,
                       in_quotes(name) + " begins without a value, and nothing ever gives it one");
}

// A setting that the data file does not name keeps its first value.
void not_in_data(Survey &survey, Report &report)
{
    std::vector<std::string> unused;
    for (const Line *line : entries_of(survey.product.data))
        if (!survey.flow.find(line->setting->name)->uses)
            unused.push_back(line->setting->name);
    const Words unused_names(std::move(unused));
    for (const auto &[name, setting] : survey.flow.settings()) {
        if (setting.data || setting.built_in || setting.setters.empty() || name == "-" ||
            is_unfilled_name(name) || name.find('/') != std::string::npos)
            continue;
        const Mention &first = *setting.setters[0];
        const std::string near = nearest_word(name, unused_names);
        if (setting.setters.size() > 1 || !near.empty())
            report.add(
                *first.file, *first.line,
                in_quotes(name) +
                    " is not in the data file: it collects its values in place of keeping the "
                    "last one" +
                    meant(near));
    }
}

// --- Filled in too early ---------------------------------------------------------------------

void filled_too_early(Survey &survey, Report &report)
{
    for (const Mention &mention : survey.flow.mentions()) {
        if (mention.role != Role::reference || mention.file->kind != FileKind::copy ||
            mention.line->command->type == Error)
            continue;
        const Setting *setting = survey.flow.find(mention.name);
        if (!setting)
            continue;
        for (const Mention *setter : setting->setters)
            if (setter->file == mention.file && setter->line->section == mention.line->section &&
                setter->line->number < mention.line->number) {
                report.add(*mention.file, *mention.line,
                           reference_to(mention.name) +
                               " was filled in when the section was loaded: what line " +
                               std::to_string(setter->line->number) +
                               " finds out does not reach it");
                break;
            }
    }
}

// --- Templates -------------------------------------------------------------------------------

bool has_reference(const std::string &text)
{
    Reference reference;
    return find_reference(text.c_str(), reference);
}

std::string extension_of(const std::string &path)
{
    const std::string name = split_path(path).name;
    const size_t point = name.rfind('.');
    return point == std::string::npos ? "" : folded(name.substr(point));
}

bool is_one_of(const std::string &word, std::initializer_list<const char *> words)
{
    return std::any_of(words.begin(), words.end(), [&](const char *one) { return word == one; });
}

// What the file that a template makes is called.
std::string made_name(const Survey &survey, const FilledText &text)
{
    return survey.flow.path(text_of(text.used->command->dest));
}

// In these the blanks at the beginning of a line mean nothing.
bool is_free_form(const std::string &name)
{
    return is_one_of(extension_of(name), {".html", ".htm", ".css", ".js", ".xml", ".svg", ".php",
                                          ".json", ".sh", ".cgi", ".pl"});
}

void lost_indentation(Survey &survey, Report &report)
{
    for (const FilledText &text : survey.texts) {
        std::string name = text.name;
        if (name.ends_with(".in"))
            name.erase(name.size() - 3);
        if (!text.used || is_free_form(name) || is_free_form(made_name(survey, text)))
            continue;
        for (const TemplateLine &line : text.lines)
            if (!line.text.empty() && (line.text[0] == ' ' || line.text[0] == '\t') &&
                has_reference(line.text))
                report.add(text, line.number,
                           "a line with a reference is written without the blanks before it");
    }
}

bool is_code(const Survey &survey, const FilledText &text)
{
    return text.used && ((!text.lines.empty() && (text.lines[0].text.starts_with("#!") ||
                                                  text.lines[0].text.starts_with("<?"))) ||
                         is_one_of(extension_of(made_name(survey, text)),
                                   {".php", ".pl", ".pm", ".sh", ".cgi"}));
}

void answer_in_quotes(Survey &survey, Report &report)
{
    for (const FilledText &text : survey.texts) {
        if (!is_code(survey, text))
            continue;
        for (const TemplateLine &line : text.lines)
            for_each_reference(line.text.c_str(), [&](const Reference &reference) {
                const bool in_quotes = reference.end && reference.begin > line.text.c_str() &&
                                       reference.begin[-1] == '\'' && reference.end[0] == '\'';
                const Setting *setting = in_quotes ? survey.flow.find(reference.name) : nullptr;
                const bool is_typed =
                    setting && std::any_of(setting->setters.begin(), setting->setters.end(),
                                           [](const Mention *one) {
                                               return one->file->kind == FileKind::questions &&
                                                      one->line->question->type == QText;
                                           });
                if (is_typed)
                    report.add(text, line.number,
                               "an answer with an apostrophe ends the quotes around " +
                                   reference_to(reference.name) +
                                   ", and the rest is run as a program");
            });
    }
}

} // namespace

const Rule reference_rules[] = {
    {"doubled-name", Severity::warning, doubled_name, nullptr},
    {"tilde", Severity::error, tilde, nullptr},
    {"blurb-name", Severity::warning, blurb_name, nullptr},
    {"unknown-reference", Severity::error,
     [](Survey &survey, Report &report) {
         unknown_reference(survey, report);
         unknown_in_text(survey, report);
     },
     nullptr},
    {"open-reference", Severity::error, open_reference, nullptr},
    {"braces", Severity::error, braces, nullptr},
    {"reference-as-name", Severity::error, reference_as_name, nullptr},
    {"no-setting-name", Severity::error, no_setting_name, nullptr},
    {"built-in", Severity::error, built_in, nullptr},
    {"repeated-setting", Severity::error, repeated_setting, nullptr},
    {"reference-cycle", Severity::error, reference_cycle, nullptr},
    {"empty-reference", Severity::error, empty_reference, nullptr},
    {"unused-setting", Severity::warning, unused_setting, nullptr},
    {"never-set", Severity::warning, never_set, nullptr},
    {"not-in-data", Severity::warning, not_in_data, nullptr},
    {"filled-too-early", Severity::error, filled_too_early, nullptr},
    {"lost-indentation", Severity::warning, lost_indentation, nullptr},
    {"answer-in-quotes", Severity::warning, answer_in_quotes, nullptr},
    end_of_rules,
};
