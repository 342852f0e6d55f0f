#include "answers.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <utility>

#include "account.h"
#include "flow.h"
#include "ini.h"
#include "kit.h"
#include "lib.h"
#include "retrace.h"

namespace {

// --- Rows --------------------------------------------------------------------------------------

// One setting of the data file.
struct Row {
    std::string name;
    std::string value;    // as it is written: references and all
    std::string wanted;   // what it has to come to when the file is read
    bool is_wanted_truth; // any word of the same truth will do
    const Line *line;     // null: behind the last line
    bool is_changed;
};

Settings settings_of(const std::vector<Row> &rows)
{
    Settings settings;
    for (const Row &row : rows)
        settings.emplace_back(row.name, row.value);
    return settings;
}

// The first row of a name is the only one that is ever found.
Row *find_row(std::vector<Row> &rows, const std::string &name)
{
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const Row &row) { return row.name == name; });
    return found == rows.end() ? nullptr : &*found;
}

bool comes_to(const Row &row, const char *value)
{
    if (row.is_wanted_truth && value && *value)
        return istrue(value) == istrue(row.wanted.c_str());
    return row.wanted == (value ? value : "");
}

// --- Filling in ----------------------------------------------------------------------------------

class Filler {
  public:
    Filler(const LastRun &the_run, const Way &the_way);

    AnsweredData fill_in(const std::string &data_file);

  private:
    void read_rows();
    void take_answer(const Step &answer, size_t number);
    bool check_answer(const Step &answer);
    void check_repeats(const Step &answer, size_t number);
    bool change_row();
    void check_rows();
    bool is_editable(const Line *line) const;
    void write(const std::string &data_file);
    void write_new_rows();
    void write_row(const Row &row, const std::string &raw);
    void complain(const std::string &name, const std::string &why);

    const LastRun &run;
    const Way &way;
    std::vector<Row> rows;
    size_t value_column = 0; // of the last line that has a value
    AnsweredData answered;
};

Filler::Filler(const LastRun &the_run, const Way &the_way) : run(the_run), way(the_way)
{
    read_rows();
}

void Filler::complain(const std::string &name, const std::string &why)
{
    answered.problems.push_back("the answer to '" + name + "' cannot be handed over: " + why);
}

// As the file is now, every setting has to come to what it comes to already.
void Filler::read_rows()
{
    for (const Line &line : run.product.data.lines)
        if (line.kind == LineKind::entry)
            rows.push_back({.name = line.setting->name,
                            .value = line.setting->value,
                            .wanted = "",
                            .is_wanted_truth = false,
                            .line = &line,
                            .is_changed = false});
    const Store store = store_before_probes(run.record, settings_of(rows));
    for (Row &row : rows)
        if (const char *value = ini_value_name(store.get(), row.name.c_str()))
            row.wanted = value;
}

// What a question of the type stores when the value, which it has stored before, is its default.
std::string stored_again(QType type, std::string value)
{
    if (type == QFileName)
        return strip_ext(strip_path(value.data()));
    if ((type & QDir) && is_separator(value.back()))
        value.pop_back();
    return value;
}

bool Filler::check_answer(const Step &answer)
{
    std::string trimmed = answer.value;
    const std::string kept = s_strtrm(trimmed.data());
    const QType type = answer.line->question->type;
    if (answer.is_cut)
        complain(answer.setting, "the log does not hold all of it");
    else if (is_built_in(answer.setting))
        complain(answer.setting, "a data file does not change this setting");
    else if (kept.empty())
        complain(answer.setting, "it is empty");
    else if (kept != answer.value)
        complain(answer.setting, "it begins or ends with a blank");
    else if (const std::string again = stored_again(type, kept); again != kept)
        complain(answer.setting, "as a default it would become '" + again + "'");
    else
        return true;
    return false;
}

// Unattended, the default is taken, whatever has given it last.
void Filler::check_repeats(const Step &answer, size_t number)
{
    if (answer.value == answer.offered)
        return;
    for (size_t at = number; at-- > 0;) {
        const Step &step = way.steps[at];
        if (step.setting != answer.setting || step.is_answer || step.is_refused)
            continue;
        const bool is_probe = step.line->probe != nullptr;
        const ProductFile &file = is_probe ? run.product.init : run.product.questions;
        complain(answer.setting, place_of(file, *step.line) + " sets it before it is asked");
        return;
    }
}

void Filler::take_answer(const Step &answer, size_t number)
{
    if (!check_answer(answer))
        return;
    check_repeats(answer, number);
    if (!find_row(rows, answer.setting))
        rows.push_back({.name = answer.setting,
                        .value = answer.value,
                        .wanted = "",
                        .is_wanted_truth = false,
                        .line = nullptr,
                        .is_changed = true});
    Row &row = *find_row(rows, answer.setting);
    row.wanted = answer.value;
    row.is_wanted_truth = answer.line->question->type == QYN;
}

// Writes the value into a row that comes to something else, first of all into those that refer to
// no other: what refers to them may be right then. False when there was none.
bool Filler::change_row()
{
    const Store store = store_before_probes(run.record, settings_of(rows));
    Row *next = nullptr;
    for (Row &row : rows) {
        if (row.is_changed || find_row(rows, row.name) != &row ||
            comes_to(row, ini_value_name(store.get(), row.name.c_str())))
            continue;
        const bool refers = row.value.find("$(") != std::string::npos;
        if (!next || !refers)
            next = &row;
        if (!refers)
            break;
    }
    if (!next)
        return false;
    next->value = next->wanted;
    next->is_changed = true;
    return true;
}

bool Filler::is_editable(const Line *line) const
{
    const auto &lines = run.product.data.lines;
    if (!line)
        return true;
    const auto next = static_cast<size_t>(line - lines.data()) + 1;
    return !line->is_piece && (next == lines.size() || !lines[next].is_piece);
}

void Filler::check_rows()
{
    const Store store = store_before_probes(run.record, settings_of(rows));
    for (const Row &row : rows) {
        if (!row.is_changed)
            continue;
        const char *value = ini_value_name(store.get(), row.name.c_str());
        if (!comes_to(row, value))
            complain(row.name, "it would be read as '" + std::string(value ? value : "") + "'");
        else if (!is_editable(row.line) || row.name.size() + row.value.size() + 1 >= line_size)
            complain(row.name, "its line is too long");
    }
}

// --- Writing -------------------------------------------------------------------------------------

// The line with the row's value in the place of its own.
void Filler::write_row(const Row &row, const std::string &raw)
{
    const std::string ending = raw.ends_with('\r') ? "\r" : "";
    const size_t begin = std::min(raw.find(row.name), raw.size());
    const size_t behind = begin + row.name.size();
    const size_t value = raw.find_first_not_of(" \t\r", std::min(behind, raw.size()));
    std::string head = raw.substr(0, value == std::string::npos ? behind : value);
    if (value == std::string::npos)
        head.resize(std::max(value_column, behind + 1), ' ');
    if (head.size() + row.value.size() >= line_size)
        head = row.name + " ";
    answered.text += head + row.value + ending;
}

// Goes through the lines of the file as they are, with those of the rows among them.
void Filler::write(const std::string &data_file)
{
    auto row = rows.begin();
    unsigned number = 1;
    for (size_t begin = 0; begin < data_file.size(); number++) {
        const size_t end = std::min(data_file.find('\n', begin), data_file.size());
        const std::string raw = data_file.substr(begin, end - begin);
        while (row != rows.end() && row->line && row->line->number < number)
            ++row;
        const bool is_row = row != rows.end() && row->line && row->line->number == number;
        if (is_row && row->is_changed && is_editable(row->line)) {
            write_row(*row, raw);
        } else {
            answered.text += raw;
            if (is_row && !row->value.empty())
                value_column = raw.size() - raw.substr(raw.find(row->name)).size() +
                               raw.substr(raw.find(row->name)).find(row->value);
        }
        if (end < data_file.size())
            answered.text += '\n';
        begin = end + 1;
    }
}

void Filler::write_new_rows()
{
    bool is_first = true;
    for (const Row &row : rows) {
        if (row.line)
            continue;
        if (std::exchange(is_first, false)) {
            if (!answered.text.empty() && !answered.text.ends_with('\n'))
                answered.text += '\n';
            answered.text += "\n# Asked, but not named above.\n";
        }
        answered.text += row.name + " " + row.value + "\n";
    }
}

AnsweredData Filler::fill_in(const std::string &data_file)
{
    std::map<std::string, size_t> last;
    for (size_t number = 0; number < way.steps.size(); number++)
        if (way.steps[number].is_answer && !way.steps[number].is_refused)
            last[way.steps[number].setting] = number;
    for (size_t number = 0; number < way.steps.size(); number++)
        if (const auto found = last.find(way.steps[number].setting);
            found != last.end() && found->second == number)
            take_answer(way.steps[number], number);
    while (change_row())
        continue;
    check_rows();
    write(data_file);
    write_new_rows();
    return std::move(answered);
}

bool read_whole(const std::string &path, std::string &text)
{
    const Stream stream(open_text(path.c_str()));
    if (!stream)
        return false;
    for (int c = 0; (c = std::fgetc(stream.get())) != EOF;)
        text += static_cast<char>(c);
    return std::ferror(stream.get()) == 0;
}

} // namespace

bool answer_data(const LastRun &run, AnsweredData &answered, std::string &problem)
{
    const std::string name = run.product.data.name;
    if (!run.has_product) {
        problem = "the product's files are not beside '" + run.log + "'";
        return false;
    }
    const Way way = retrace(run.record, run.product, judge(run.record, &run.product, {}).section);
    if (!way.is_known) {
        problem =
            "the product's files are not those of the last run that '" + run.log + "' tells of";
        return false;
    }
    std::string data_file;
    if (!read_whole(run.product.path(name), data_file)) {
        problem = "'" + name + "' cannot be read: " + std::strerror(errno);
        return false;
    }
    answered = Filler(run, way).fill_in(data_file);
    return true;
}

int kit_answers(int argc, char **argv)
{
    if (argc > 2 || (argc == 2 && argv[1][0] == '-'))
        return misused(argv[0]);
    LastRun run;
    AnsweredData answered;
    std::string problem;
    if (!read_last_run(argc > 1 ? argv[1] : nullptr, run, problem) ||
        !answer_data(run, answered, problem))
        return unable("%s", problem.c_str());
    std::fwrite(answered.text.data(), 1, answered.text.size(), stdout);
    std::fflush(stdout);
    for (const std::string &each : answered.problems)
        std::fprintf(stderr, "product-kit: %s\n", each.c_str());
    return answered.problems.empty() ? run_done : run_faulty;
}
