#include "product.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <utility>

#include "array.h"
#include "file.h"
#include "lib.h"
#include "log.h"
#include "shared.h"

std::string folded(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(charmap[static_cast<unsigned char>(c)]);
    return text;
}

void RecordRelease::operator()(copy_cmd *command) const
{
    copy_release(*command);
    delete command;
}

void RecordRelease::operator()(quest *question) const
{
    quest_release(*question);
    delete question;
}

void RecordRelease::operator()(init_item *item) const
{
    init_item_free(&item);
}

namespace {

// The parsers report what is wrong with a line to the log. Here there is none, and what they have
// kept for one is thrown away.
class NoLog {
  public:
    NoLog() : before(std::exchange(CurrentLog, nullptr)) {}
    ~NoLog()
    {
        array_free_dealloc(&EmsgLog);
        CurrentLog = before;
    }
    NoLog(const NoLog &) = delete;
    NoLog &operator=(const NoLog &) = delete;

  private:
    Log *before;
};

std::vector<std::string> fields_of(std::string text)
{
    std::vector<std::string> fields;
    char *rest = text.data();
    while (const char *field = next_field(&rest))
        fields.emplace_back(field);
    return fields;
}

// Takes the lines of one file in turn, as the installer's loader of that file does.
class FileReader {
  public:
    explicit FileReader(ProductFile &to) : file(to) {}

    void take(const LineReader &reader, char *text);

  private:
    bool has_sections() const
    {
        return file.kind == FileKind::questions || file.kind == FileKind::copy;
    }
    void open_section(const char *name);
    void parse(Line &line, char *text);
    void parse_setting(Line &line, char *text);
    void parse_probe(Line &line, char *text);
    void parse_question(Line &line, char *text);
    void parse_command(Line &line, char *text);

    ProductFile &file;
    bool goes_on = false; // the next text is a piece of the last line
    int entries = 0;
    CType type_left = {};       // by a dropped command line: an unknown word takes it over
    Record<init_item> unfilled; // what short lines of the init script have filled in so far
};

void FileReader::open_section(const char *name)
{
    const bool is_read =
        file.section_numbers.try_emplace(folded(name), file.sections.size()).second;
    file.sections.push_back({.name = name, .header = file.lines.size(), .is_read = is_read});
    entries = 0;
    type_left = {};
}

void FileReader::take(const LineReader &reader, char *text)
{
    Line line;
    line.number = reader.number();
    line.is_piece = goes_on;
    goes_on = reader.is_cut();
    line.text = text;
    if (*text == '#')
        line.kind = LineKind::comment;
    else if (*text) {
        line.fields = fields_of(text);
        if (const char *name = has_sections() ? section_name(text) : nullptr) {
            line.kind = LineKind::header;
            open_section(name);
        } else if (has_sections() && file.sections.empty()) {
            line.kind = LineKind::outside;
        } else {
            parse(line, text);
        }
    }
    line.section = static_cast<int>(file.sections.size()) - 1;
    file.lines.push_back(std::move(line));
}

void FileReader::parse(Line &line, char *text)
{
    switch (file.kind) {
    case FileKind::data:
        parse_setting(line, text);
        break;
    case FileKind::init:
        parse_probe(line, text);
        break;
    case FileKind::questions:
        parse_question(line, text);
        break;
    case FileKind::copy:
        parse_command(line, text);
        break;
    }
    if (line.kind == LineKind::entry)
        line.entry = entries++;
}

void FileReader::parse_setting(Line &line, char *text)
{
    const data_line parsed = data_parse(text);
    line.setting.reset(new DataSetting{.name = parsed.name, .value = parsed.value});
    line.kind = LineKind::entry;
}

void FileReader::parse_probe(Line &line, char *text)
{
    if (!unfilled)
        unfilled.reset(new init_item{});
    if (init_parse(text, *unfilled)) {
        line.probe = std::move(unfilled);
        line.kind = LineKind::entry;
        return;
    }
    line.kind = LineKind::dropped;
}

void FileReader::parse_question(Line &line, char *text)
{
    line.question.reset(new quest{});
    line.kind = quest_parse(text, *line.question) ? LineKind::entry : LineKind::dropped;
}

void FileReader::parse_command(Line &line, char *text)
{
    line.command.reset(new copy_cmd{});
    line.command->type = type_left;
    const bool complete = copy_parse(text, *line.command);
    line.kind = complete ? LineKind::entry : LineKind::dropped;
    type_left = complete ? CType{} : line.command->type;
}

void read_file(const Product &product, FileKind kind, const char *extension, ProductFile &file)
{
    file = ProductFile();
    file.kind = kind;
    file.name = product.name + extension;
    errno = 0;
    LineReader reader(product.path(file.name).c_str());
    if (!reader.is_open()) {
        file.is_there = errno != ENOENT;
        file.problem = std::strerror(errno);
        return;
    }
    file.is_there = true;
    FileReader taker(file);
    while (char *text = reader.next())
        taker.take(reader, text);
    if (reader.failed())
        file.problem = std::strerror(errno);
}

constexpr const char *extensions[] = {".dat", ".int", ".q", ".cpy"};

// The names that files of a kind bear in a folder. The installer's own name ends at its first ".".
std::set<std::string> names_with(const std::string &folder, const std::string &extension)
{
    std::set<std::string> names;
    for (Scan scan(folder.c_str(), ("*" + extension).c_str()); scan.entry(); scan.next()) {
        const std::string name = scan.entry()->name;
        const std::string stem = name.substr(0, name.size() - extension.size());
        if (!stem.empty() && stem.find('.') == std::string::npos)
            names.insert(stem);
    }
    return names;
}

// A product has a data file; where there is none, any of the others tells its name.
bool find_name(const std::string &folder, std::string &name, std::string &problem)
{
    std::set<std::string> names = names_with(folder, extensions[0]);
    for (size_t kind = 1; kind < std::size(extensions) && names.empty(); kind++)
        names = names_with(folder, extensions[kind]);
    if (names.size() == 1) {
        name = *names.begin();
        return true;
    }
    if (names.empty()) {
        problem = "there is no product in '" + folder + "'";
        return false;
    }
    problem = "there are several products in '" + folder + "', name one:";
    for (const std::string &one : names)
        problem += " " + one;
    return false;
}

} // namespace

const ProductFile *Product::file(FileKind kind) const
{
    const ProductFile *const files[] = {&data, &init, &questions, &copy};
    return files[static_cast<size_t>(kind)];
}

std::string Product::path(std::string_view name_in_folder) const
{
    return folder == "."
               ? std::string(name_in_folder)
               : folder + (folder.ends_with('/') ? "" : "/") + std::string(name_in_folder);
}

bool load_product(const std::string &folder, const std::string &name, Product &product,
                  std::string &problem)
{
    const NoLog quiet;
    product.folder = folder.empty() ? "." : folder;
    product.name = name;
    if (file_exist(product.folder.c_str()) != 2) {
        problem = "there is no folder '" + product.folder + "'";
        return false;
    }
    if (name.empty() && !find_name(product.folder, product.name, problem))
        return false;
    ProductFile *const files[] = {&product.data, &product.init, &product.questions, &product.copy};
    bool any = false;
    for (size_t kind = 0; kind < std::size(files); kind++) {
        ProductFile &file = *files[kind];
        read_file(product, static_cast<FileKind>(kind), extensions[kind], file);
        any = any || file.is_there;
        if (file.is_there && !file.problem.empty()) {
            problem = "'" + file.name + "' cannot be read, " + file.problem;
            return false;
        }
    }
    if (!any)
        problem = "there is no product '" + product.name + "' in '" + product.folder + "'";
    return any;
}

const Section *find_section(const ProductFile &file, std::string_view name)
{
    const auto found = file.section_numbers.find(folded(std::string(name)));
    return found == file.section_numbers.end() ? nullptr : &file.sections[found->second];
}

std::vector<const Line *> section_lines(const ProductFile &file, std::string_view section)
{
    std::vector<const Line *> lines;
    const Section *wanted = section.empty() ? nullptr : find_section(file, section);
    if (!section.empty() && !wanted)
        return lines;
    for (size_t at = wanted ? wanted->header + 1 : 0;
         at < file.lines.size() && file.lines[at].kind != LineKind::header; at++)
        lines.push_back(&file.lines[at]);
    return lines;
}

const Line *find_entry(const ProductFile &file, std::string_view section, int entry)
{
    for (const Line *line : section_lines(file, section))
        if (line->entry == entry && line->kind == LineKind::entry)
            return line;
    return nullptr;
}

std::vector<const Line *> entries_of(const ProductFile &file)
{
    std::vector<const Line *> entries;
    for (const Line &line : file.lines)
        if (line.kind == LineKind::entry)
            entries.push_back(&line);
    return entries;
}

std::vector<const Line *> entries_of(const ProductFile &file, std::string_view section)
{
    std::vector<const Line *> entries;
    for (const Line *line : section_lines(file, section))
        if (line->kind == LineKind::entry)
            entries.push_back(line);
    return entries;
}

bool is_asked(QType type)
{
    return type != QCopy && type != QXExist && type != QError && type != QLoop;
}

std::set<std::string> asked_in(const Product &product, std::string_view section)
{
    std::set<std::string> settings;
    for (const Line *line : entries_of(product.questions, section))
        if (is_asked(line->question->type))
            settings.insert(line->question->setting);
    return settings;
}

std::string place_of(const ProductFile &file, const Line &line)
{
    return file.name + ":" + std::to_string(line.number);
}

bool has_settings_ending(std::string_view name)
{
    constexpr const char *endings[] = {
        ".conf", ".cfg", ".cnf", ".ini", ".env", ".rc", ".properties", ".yml", ".yaml", ".toml",
    };
    return std::ranges::any_of(endings, [&](const char *one) { return name.ends_with(one); });
}

bool read_template(const std::string &path, std::vector<TemplateLine> &lines)
{
    const Stream stream(open_text(path.c_str()));
    if (!stream)
        return false;
    char text[3 * line_size + 1];
    unsigned number = 1;
    while (std::fgets(text, static_cast<int>(std::size(text)), stream.get())) {
        std::string line = text;
        const bool ended = line.ends_with('\n');
        if (ended)
            line.pop_back();
        lines.push_back({.number = number, .text = std::move(line)});
        number += ended;
    }
    return !std::ferror(stream.get());
}
