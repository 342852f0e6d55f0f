#include "list.h"

#include <cstdio>

#include <unistd.h>

#include "copy.h"
#include "ini.h"
#include "lib.h"
#include "rules.h"
#include "shared.h"

namespace {

// The settings of the data file, to fill in what refers to them.
class Defaults {
  public:
    // Where the data file cannot be looked at from its own folder, texts stay as they are written.
    explicit Defaults(const Product &product)
    {
        Owned<Ini, ini_free> settings(ini_init());
        if (::chdir(product.folder.c_str()) == 0 &&
            load_datfile(settings.get(), product.data.name.c_str()))
            store = std::move(settings);
        script->ini = store.get();
    }
    ~Defaults() { clear_datfile(); }
    Defaults(const Defaults &) = delete;
    Defaults &operator=(const Defaults &) = delete;

    std::string filled(const char *text) const
    {
        const Text result(replace_vars(script.get(), text));
        return result ? result.get() : text_of(text);
    }

  private:
    Owned<Ini, ini_free> store;
    Owned<copy, copy_free> script{copy_init(nullptr)};
};

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
    return "when " + in_quotes(probe.control) + " is exactly " + in_quotes(probe.compare);
}

// The first field takes what the second holds.
bool goes_backwards(IItemMode mode)
{
    return mode == ICopy || mode == IWFile;
}

std::string probe_text(const init_item &probe, const Defaults &defaults)
{
    const std::string word = word_of(init_word, init_word_mode, probe.mode);
    const std::string first = defaults.filled(probe.a);
    const std::string second = text_of(probe.b);
    if (probe.mode & IHTTP)
        return word + " -> " + first + ", or true -> " + second;
    return goes_backwards(probe.mode) ? word + " " + second + " -> " + first
                                      : word + " " + first + " -> " + second;
}

std::string question_condition(const quest &question)
{
    if (!is_asked(question.type) || !question.control)
        return "";
    const std::string control = in_quotes(question.control);
    return question.control_cmp ? "when " + control + " is exactly " +
                                      in_quotes(question.control_cmp) + " or has no value"
                                : "when " + control + " is true or has no value";
}

std::string question_text(const quest &question, const Defaults &defaults)
{
    const std::string word = word_of(quest_word, quest_word_type, question.type);
    const std::string setting = text_of(question.setting);
    const std::string text = defaults.filled(question.text);
    switch (question.type) {
    case QCopy:
        return word + " the value of " + in_quotes(text) + " to " + in_quotes(setting);
    case QXExist:
        return word + " " + text + " -> " + in_quotes(setting);
    case QError:
        return word + " when " + in_quotes(setting) + " is false: " + text;
    case QLoop:
        return word + " to " + text + " when " + in_quotes(setting) + " is false";
    default:
        return word + " " + in_quotes(setting) + ": " + text;
    }
}

std::string command_condition(const copy_cmd &command)
{
    if (!command.control || s_strcmp(command.control, "-") == 0)
        return "";
    const std::string control = in_quotes(command.control);
    return command.control_cmp
               ? "when " + control + " is " + in_quotes(command.control_cmp) + " or has no value"
               : "when " + control + " is true or has no value";
}

std::string command_text(const copy_cmd &command, const Defaults &defaults)
{
    std::string text = word_of(copy_word, copy_word_type, command.type);
    const std::string source = defaults.filled(command.source);
    const std::string destination = defaults.filled(command.dest);
    if (command.type == Error)
        return text + " when " + in_quotes(source) + " is false: " + destination;
    if (command.type == WFile)
        return text + " " + destination + " -> " + source;
    text += " " + source;
    if (command.dest)
        text += " -> " + destination;
    if (command.not_ && s_strcmp(command.not_, "-") != 0)
        text += ", but not " + text_of(command.not_);
    return text;
}

void print_line(const Line &line, const Defaults &defaults)
{
    std::string text;
    std::string condition;
    if (line.setting) {
        text = line.setting->name + " = " +
               (line.setting->value.empty() ? "(no value)" : line.setting->value);
    } else if (line.probe) {
        text = probe_text(*line.probe, defaults);
        condition = probe_condition(*line.probe);
    } else if (line.question) {
        text = question_text(*line.question, defaults);
        condition = question_condition(*line.question);
    } else if (line.command) {
        text = command_text(*line.command, defaults);
        condition = command_condition(*line.command);
    }
    std::printf("%5d  %s%s%s\n", line.entry, text.c_str(), condition.empty() ? "" : ", ",
                condition.c_str());
}

void print_entries(const ProductFile &file, const std::vector<const Line *> &lines,
                   const Defaults &defaults)
{
    for (const Line *line : lines)
        if (line->kind == LineKind::dropped)
            std::printf("    -  (line %u is dropped)\n", line->number);
        else if (line->kind == LineKind::entry)
            print_line(*line, defaults);
    if (file.kind == FileKind::questions)
        std::printf("%5zu  (the end)\n", entries_of(file, section_of(file, *lines[0])).size());
}

void print_file(const ProductFile &file, const Defaults &defaults)
{
    std::printf("%s\n", file.name.c_str());
    print_entries(file, section_lines(file, ""), defaults);
}

bool print_section(const ProductFile &file, const std::string &name, const Defaults &defaults)
{
    const Section *section = find_section(file, name);
    if (!section)
        return false;
    std::printf("%s [%s]\n", file.name.c_str(), section->name.c_str());
    const auto lines = section_lines(file, name);
    if (!lines.empty())
        print_entries(file, lines, defaults);
    return true;
}

} // namespace

bool list_section(const Product &product, const std::string &section)
{
    const Defaults defaults(product);
    if (!section.empty()) {
        const bool is_asked_for = print_section(product.questions, section, defaults);
        return print_section(product.copy, section, defaults) || is_asked_for;
    }
    print_file(product.data, defaults);
    print_file(product.init, defaults);
    for (const Section &one : product.questions.sections)
        if (one.is_read)
            print_section(product.questions, one.name, defaults);
    for (const Section &one : product.copy.sections)
        if (one.is_read)
            print_section(product.copy, one.name, defaults);
    return true;
}
