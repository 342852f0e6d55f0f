// Lines that are not what they seem.
#include "rules.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "lib.h"

namespace {

// --- Words and columns -----------------------------------------------------------------------

std::vector<std::string> words_of(const char *(*word)(unsigned number))
{
    std::vector<std::string> words;
    for (unsigned number = 0; word(number); number++)
        words.emplace_back(word(number));
    return words;
}

// The words of a file's lines; none in the data file.
const std::vector<std::string> &known_words(FileKind kind)
{
    static const std::vector<std::string> words[] = {
        {}, words_of(init_word), words_of(quest_word), words_of(copy_word)};
    return words[static_cast<size_t>(kind)];
}

bool is_known_word(FileKind kind, const std::string &word)
{
    const auto compare = kind == FileKind::init ? s_strcmp : s_stricmp;
    const auto &words = known_words(kind);
    return std::any_of(words.begin(), words.end(), [&](const std::string &known) {
        return compare(known.c_str(), word.c_str()) == 0;
    });
}

bool has_word(const ProductFile &file, const Line &line)
{
    return file.kind != FileKind::data &&
           (line.kind == LineKind::entry || line.kind == LineKind::dropped) && !line.is_piece;
}

// What becomes of a complete line whose word is not known.
std::string fate_of(const ProductFile &file, const Line &line)
{
    if (line.kind == LineKind::dropped)
        return file.kind == FileKind::init ? "the short line leaves what it has to the next one"
                                           : "the line is dropped";
    if (file.kind == FileKind::questions)
        return "it is asked as if it were \"Text\"";
    if (file.kind == FileKind::copy)
        return line.command->type != CType{}
                   ? "it takes over the command of the dropped line before"
                   : "it fails when it is run";
    return line.probe->mode != IItemMode{} ? "it takes over the command of the short line before"
                                           : "it does nothing";
}

void unknown_word(Survey &survey, Report &report)
{
    std::map<FileKind, Words> words;
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (!has_word(file, line) || is_known_word(file.kind, line.fields[0]))
            return;
        const auto known = words.try_emplace(file.kind, known_words(file.kind)).first;
        report.add(file, line,
                   in_quotes(line.fields[0]) + " is no word of this file, and " +
                       fate_of(file, line) + meant(nearest_word(line.fields[0], known->second)));
    });
}

void incomplete_line(Survey &survey, Report &report)
{
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (line.kind != LineKind::dropped || !has_word(file, line) ||
            !is_known_word(file.kind, line.fields[0]))
            return;
        if (file.kind == FileKind::init)
            report.add(file, line,
                       "a probe has five columns and this line " +
                           std::to_string(line.fields.size()) +
                           ": it does not run, and leaves what it has to the next line");
        else
            report.add(file, line,
                       "a column of " + in_quotes(line.fields[0]) +
                           " is missing: the line is dropped");
    });
}

// The most columns of a line whose last one is no text; 0: no limit.
size_t most_fields(const ProductFile &file, const Line &line)
{
    if (file.kind == FileKind::init)
        return 5;
    const std::string word = line.fields[0];
    if (file.kind == FileKind::questions) {
        for (unsigned number = 0; quest_word(number); number++)
            if (s_stricmp(quest_word(number), word.c_str()) == 0)
                return quest_word_fields(number) & has_text
                           ? quest_word_type(number) == QCopy ? 6 : 0
                           : 3;
        return 0;
    }
    for (unsigned number = 0; copy_word(number); number++)
        if (s_stricmp(copy_word(number), word.c_str()) == 0) {
            const unsigned fields = copy_word_fields(number);
            if (fields & has_message)
                return 0;
            return 3U + ((fields & needs_source) != 0) + ((fields & needs_not) != 0) +
                   ((fields & needs_dest) != 0);
        }
    return 0;
}

void too_many_columns(Survey &survey, Report &report)
{
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (line.kind != LineKind::entry || !has_word(file, line))
            return;
        const size_t most = most_fields(file, line);
        if (most == 0 || line.fields.size() <= most || line.fields[most][0] == '#')
            return;
        if (file.kind == FileKind::questions && line.question->type == QCopy)
            report.add(file, line,
                       "\"Copy\" takes the name of one setting, and no setting is called " +
                           in_quotes(text_of(line.question->text)));
        else
            report.add(
                file, line,
                in_quotes(line.fields[most]) + " is one column too many and is not looked at" +
                    (most == 5 && file.kind == FileKind::init ? "" : ": no column holds blanks"));
    });
}

// --- Comments, quotes and signs --------------------------------------------------------------

bool is_comment_field(const std::string &field)
{
    return field[0] == '#' &&
           (field.size() == 1 || !std::isalnum(static_cast<unsigned char>(field[1])));
}

// A "#" behind a value or a command does not begin a comment.
void comment_behind(Survey &survey, Report &report)
{
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (line.kind != LineKind::entry || file.kind == FileKind::questions ||
            (file.kind == FileKind::copy && line.command->type == Error))
            return;
        const size_t most =
            file.kind == FileKind::data ? line.fields.size() : most_fields(file, line);
        const size_t first = file.kind == FileKind::data ? 2 : 1;
        for (size_t at = first; at < std::min(most, line.fields.size()); at++)
            if (is_comment_field(line.fields[at])) {
                report.add(
                    file, line,
                    file.kind == FileKind::data
                        ? "the value goes on to the end of the line: \"#\" begins no comment "
                          "here and becomes part of it"
                        : "\"#\" begins no comment behind a command: it is taken for a column");
                return;
            }
    });
}

bool is_quoted_text(const std::string &text)
{
    return text.size() > 1 && (text[0] == '"' || text[0] == '\'') && text.back() == text[0];
}

void quoted_value(Survey &survey, Report &report)
{
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (line.kind != LineKind::entry)
            return;
        if (file.kind == FileKind::data) {
            if (is_quoted_text(line.setting->value))
                report.add(file, line, "the quotes become part of the value, as they stand");
            return;
        }
        if (file.kind != FileKind::copy || line.command->type == Error)
            return;
        for (const std::string &field : line.fields)
            if (field[0] == '"' || (field.size() > 1 && field.back() == '"')) {
                report.add(file, line,
                           "the quotes become part of the name " + field +
                               ", and blanks end a column in spite of them");
                return;
            }
    });
}

void equals_sign(Survey &survey, Report &report)
{
    for (const Line *line : entries_of(survey.product.data)) {
        const DataSetting &setting = *line->setting;
        const size_t sign = setting.name.find('=');
        if (sign != std::string::npos && sign > 0)
            report.add(survey.product.data, *line,
                       "the name ends at the first blank: this is the setting " +
                           in_quotes(setting.name) + ", not " +
                           in_quotes(setting.name.substr(0, sign)));
        else if (setting.value == "=" || setting.value.starts_with("= "))
            report.add(survey.product.data, *line,
                       "the \"=\" becomes part of the value, " + in_quotes(setting.value));
    }
}

// --- Bytes -----------------------------------------------------------------------------------

void byte_order_mark(Survey &survey, Report &report)
{
    for (const FileKind kind : all_files) {
        const ProductFile &file = *survey.product.file(kind);
        if (!file.lines.empty() && file.lines[0].text.starts_with("\xEF\xBB\xBF"))
            report.add(
                file, file.lines[0],
                "the file begins with a byte order mark, which becomes part of its first word");
    }
}

void long_line(Survey &survey, Report &report)
{
    unsigned told = 0;
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (!line.is_piece || line.number == told || line.kind == LineKind::blank ||
            line.kind == LineKind::comment)
            return;
        told = line.number;
        report.add(file, line,
                   "the line is longer than 999 bytes: the rest is taken for a line of its own");
    });
}

void carriage_return(Survey &survey, Report &report)
{
    for_each_line(survey.product, [&](const ProductFile &file, const Line &line) {
        if (line.text.find('\r') != std::string::npos)
            report.add(file, line,
                       "a carriage return does not end a line: all of this is one line");
    });
}

// --- Sections --------------------------------------------------------------------------------

constexpr const ProductFile Product::*section_files[] = {&Product::questions, &Product::copy};

const Line &header_of(const ProductFile &file, const Section &section)
{
    return file.lines[section.header];
}

// A header whose name no entry of the menu and no command line would bear.
bool is_odd(const ProductFile &file, const Section &section)
{
    return !header_of(file, section).text.ends_with(']') || section.name.empty() ||
           section.name.find_first_of(" \t") != std::string::npos;
}

void section_name_odd(Survey &survey, Report &report)
{
    for (const auto member : section_files) {
        const ProductFile &file = survey.product.*member;
        for (const Section &section : file.sections)
            if (is_odd(file, section))
                report.add(file, header_of(file, section),
                           "this begins the section " + in_quotes(section.name) +
                               ": \"]\" must be the last character, and blanks count");
    }
}

constexpr const char *flow_sections[] = {"install", "upgrade", "remove"};

std::vector<std::string> section_names(const ProductFile &file)
{
    std::vector<std::string> names;
    for (const Section &section : file.sections)
        names.push_back(folded(section.name));
    return names;
}

void section_repeated(Survey &survey, Report &report)
{
    for (const auto member : section_files) {
        const ProductFile &file = survey.product.*member;
        for (const Section &section : file.sections)
            if (!section.is_read)
                report.add(file, header_of(file, section),
                           "there is a section " + in_quotes(section.name) +
                               " above, and only that is ever read");
    }
}

// The names that a section of one file can be meant to have: the menu's, and the other file's.
Words names_free(const ProductFile &file, const ProductFile &other)
{
    std::vector<std::string> names = section_names(other);
    names.insert(names.end(), std::begin(flow_sections), std::end(flow_sections));
    std::erase_if(names, [&](const std::string &one) { return find_section(file, one); });
    return Words(std::move(names));
}

// The sections of a file that the other one lacks, and what comes of that.
void add_alone(const ProductFile &file, const ProductFile &other, const char *fate, Report &report)
{
    const Words names = names_free(file, other);
    for (const Section &section : file.sections)
        if (section.is_read && !is_odd(file, section) && !find_section(other, section.name))
            report.add(file, header_of(file, section),
                       other.name + " has no section " + in_quotes(section.name) + fate +
                           meant(nearest_word(section.name, names)));
}

void section_alone(Survey &survey, Report &report)
{
    const Product &product = survey.product;
    if (!product.questions.is_there || !product.copy.is_there)
        return;
    add_alone(product.questions, product.copy, ": after the questions nothing is done", report);
    add_alone(product.copy, product.questions, ", which may be empty: these commands never run",
              report);
}

bool has_section(const Product &product, const char *name)
{
    return find_section(product.questions, name) || find_section(product.copy, name);
}

// A product that is more than a beginning has all that its menu offers.
void section_missing(Survey &survey, Report &report)
{
    const Product &product = survey.product;
    std::string missing;
    size_t there = 0;
    for (const char *name : flow_sections)
        has_section(product, name) ? static_cast<void>(there++) : static_cast<void>(missing = name);
    if (there != 2)
        return;
    const ProductFile &file = product.copy.is_there ? product.copy : product.questions;
    report.add(file, "the menu offers " + in_quotes(missing) +
                         " and there is no such section: choosing it fails");
}

void before_section(Survey &survey, Report &report)
{
    for (const auto member : section_files) {
        const ProductFile &file = survey.product.*member;
        for (const Line &line : file.lines)
            if (line.kind == LineKind::outside && !line.is_piece) {
                report.add(file, line, "this stands before the first section and is never read");
                break;
            }
    }
}

void file_missing(Survey &survey, Report &report)
{
    const Product &product = survey.product;
    const auto missing = [&](const ProductFile &file, const char *consequence) {
        if (!file.is_there)
            report.add(file, std::string("there is no such file: ") + consequence);
    };
    missing(product.data, "the run ends at once, without a word");
    missing(product.init, "the run ends before the menu; an empty one will do");
    if (product.copy.is_there)
        missing(product.questions, "no entry of the menu gets beyond its questions");
    // The commands come last: without them the product is not yet written to its end.
}

void no_product_name(Survey &survey, Report &report)
{
    const Product &product = survey.product;
    if (product.data.is_there && !survey.flow.find("product"))
        report.add(product.data, "no setting is called \"product\": the screens show \"NONAME\"");
}

} // namespace

const Rule line_rules[] = {
    {"unknown-word", Severity::error, unknown_word, nullptr},
    {"incomplete-line", Severity::error, incomplete_line, nullptr},
    {"too-many-columns", Severity::error, too_many_columns, nullptr},
    {"comment-behind", Severity::error, comment_behind, nullptr},
    {"quoted-value", Severity::warning, quoted_value, nullptr},
    {"equals-sign", Severity::error, equals_sign, nullptr},
    {"byte-order-mark", Severity::error, byte_order_mark, nullptr},
    {"long-line", Severity::error, long_line, nullptr},
    {"carriage-return", Severity::error, carriage_return, nullptr},
    {"section-name", Severity::error, section_name_odd, nullptr},
    {"section-repeated", Severity::error, section_repeated, nullptr},
    {"section-alone", Severity::error, section_alone, nullptr},
    {"section-missing", Severity::error, section_missing, nullptr},
    {"before-section", Severity::error, before_section, nullptr},
    {"file-missing", Severity::error, file_missing, nullptr},
    {"no-product-name", Severity::warning, no_product_name, nullptr},
    end_of_rules,
};
