#include "list.h"

#include <cstdio>

#include "lib.h"
#include "rules.h"

namespace {

// The word for a number in a table of words.
template <typename Type>
std::string word_of(const char *(*word)(unsigned), Type (*type_of)(unsigned), Type type)
{
    for (unsigned number = 0; word(number); number++)
        if (type_of(number) == type)
            return word(number);
    return "(unknown word)";
}

std::string probe_condition(const init_item &probe)
{
    if (!probe.compare)
        return "";
    if (!probe.control)
        return "never";
    return "when " + quoted(probe.control) + " is exactly " + quoted(probe.compare);
}

std::string probe_text(const init_item &probe)
{
    return word_of(init_word, init_word_mode, probe.mode) + " " + text_of(probe.a) + " -> " +
           text_of(probe.b);
}

std::string question_condition(const quest &question)
{
    if (!is_asked(question.type) || !question.control)
        return "";
    const std::string control = quoted(question.control);
    return question.control_cmp ? "when " + control + " is exactly " +
                                      quoted(question.control_cmp) + " or has no value"
                                : "when " + control + " is true or has no value";
}

std::string question_text(const quest &question)
{
    const std::string word = word_of(quest_word, quest_word_type, question.type);
    const std::string setting = text_of(question.setting);
    const std::string text = text_of(question.text);
    switch (question.type) {
    case QCopy:
        return word + " the value of " + quoted(text) + " to " + quoted(setting);
    case QXExist:
        return word + " " + text + " -> " + quoted(setting);
    case QError:
        return word + " when " + quoted(setting) + " is false: " + text;
    case QLoop:
        return word + " to " + text + " when " + quoted(setting) + " is false";
    default:
        return word + " " + quoted(setting) + ": " + text;
    }
}

std::string command_condition(const copy_cmd &command)
{
    if (!command.control || s_strcmp(command.control, "-") == 0)
        return "";
    const std::string control = quoted(command.control);
    return command.control_cmp
               ? "when " + control + " is " + quoted(command.control_cmp) + " or has no value"
               : "when " + control + " is true or has no value";
}

std::string command_text(const copy_cmd &command)
{
    std::string text = word_of(copy_word, copy_word_type, command.type);
    if (command.type == Error)
        return text + " when " + quoted(text_of(command.source)) +
               " is false: " + text_of(command.dest);
    text += " " + text_of(command.source);
    if (command.dest)
        text += " -> " + text_of(command.dest);
    if (command.not_ && s_strcmp(command.not_, "-") != 0)
        text += ", but not " + text_of(command.not_);
    return text;
}

void print_line(const Line &line)
{
    std::string text;
    std::string condition;
    if (line.setting) {
        text = line.setting->name + " = " +
               (line.setting->value.empty() ? "(no value)" : line.setting->value);
    } else if (line.probe) {
        text = probe_text(*line.probe);
        condition = probe_condition(*line.probe);
    } else if (line.question) {
        text = question_text(*line.question);
        condition = question_condition(*line.question);
    } else if (line.command) {
        text = command_text(*line.command);
        condition = command_condition(*line.command);
    }
    std::printf("%5d  %s%s%s\n", line.entry, text.c_str(), condition.empty() ? "" : ", ",
                condition.c_str());
}

void print_entries(const ProductFile &file, const std::vector<const Line *> &lines)
{
    for (const Line *line : lines)
        if (line->kind == LineKind::dropped)
            std::printf("    -  (line %u is dropped)\n", line->number);
        else if (line->kind == LineKind::entry)
            print_line(*line);
    if (file.kind == FileKind::questions)
        std::printf("%5zu  (the end)\n", entries_of(file, section_of(file, *lines[0])).size());
}

void print_file(const ProductFile &file)
{
    std::printf("%s\n", file.name.c_str());
    print_entries(file, section_lines(file, ""));
}

bool print_section(const ProductFile &file, const std::string &name)
{
    const Section *section = find_section(file, name);
    if (!section)
        return false;
    std::printf("%s [%s]\n", file.name.c_str(), section->name.c_str());
    const auto lines = section_lines(file, name);
    if (!lines.empty())
        print_entries(file, lines);
    return true;
}

} // namespace

bool list_section(const Product &product, const std::string &section)
{
    if (!section.empty()) {
        const bool is_asked_for = print_section(product.questions, section);
        return print_section(product.copy, section) || is_asked_for;
    }
    print_file(product.data);
    print_file(product.init);
    for (const Section &one : product.questions.sections)
        if (one.is_read)
            print_section(product.questions, one.name);
    for (const Section &one : product.copy.sections)
        if (one.is_read)
            print_section(product.copy, one.name);
    return true;
}
