#include "account.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "kit.h"
#include "lib.h"
#include "product.h"
#include "record.h"
#include "retrace.h"

namespace {

using Lines = std::vector<const Line *>;

// The lines of a section that are questions or commands, dropped ones too, in file order.
Lines loaded_lines(const ProductFile &file, const std::string &section)
{
    Lines lines = section_lines(file, section);
    std::erase_if(lines, [](const Line *line) {
        return line->kind != LineKind::entry && line->kind != LineKind::dropped;
    });
    return lines;
}

// Whether a line is what the log tells of; a message that was cut holds only its beginning.
bool is_logged_line(const ScriptLine &logged, const Line *line)
{
    const size_t whole = line_size - std::strlen("Process .cpy file line []");
    return logged.text.size() < whole ? line->text == logged.text
                                      : line->text.starts_with(logged.text.substr(0, whole - 1));
}

bool are_logged_lines(const RunRecord &record, const Lines &lines)
{
    const bool is_whole = record.stage > Stage::loading;
    return lines.size() >= record.script.size() &&
           (!is_whole || lines.size() == record.script.size()) &&
           std::equal(record.script.begin(), record.script.end(), lines.begin(), is_logged_line);
}

// The command as it was done.
std::string filled_line(const ScriptLine &line, const Deed &deed)
{
    std::string filled = line.text.substr(0, line.text.find_first_of(" \t"));
    for (const std::string &field : {deed.source, line.not_, deed.dest})
        if (!field.empty())
            filled += " " + field;
    return filled;
}

// --- What the questions and the probes say -----------------------------------------------------

// What the loaders of the init script and of the questions say about a line.
bool is_about_probe(const std::string &error)
{
    return error.starts_with("Unknown init command '");
}

bool is_about_question(const std::string &error)
{
    constexpr const char *missing[] = {"Missing setting label", "Missing control",
                                       "Missing control comparison", "Missing Help ID text",
                                       "Missing question text"};
    return error.starts_with("Unknown question type '") ||
           std::any_of(std::begin(missing), std::end(missing),
                       [&](const char *text) { return error == text; });
}

// The line that such an error is about: the next one that lacks a field, or that begins with the
// word.
const Line *find_faulty(const Lines &lines, size_t &next, const std::string &error)
{
    const bool is_about_word = error.starts_with("Unknown ");
    while (next < lines.size()) {
        const Line *line = lines[next];
        if (!is_about_word && line->kind == LineKind::dropped) {
            next++;
            return line;
        }
        if (is_about_word && !line->fields.empty() &&
            error.ends_with(" '" + line->fields[0] + "'")) {
            // It may lack a field as well.
            next += line->kind != LineKind::dropped;
            return line;
        }
        next++;
    }
    return nullptr;
}

// --- One account -------------------------------------------------------------------------------

class Judge {
  public:
    Judge(const RunRecord &the_record, const Product *the_product);

    Account draw_up(const Ending &ending);

  private:
    void find_way();
    void add(AccountEntry entry);
    void remark(const std::string &sentence) { account.remarks.push_back(sentence); }
    std::string file(const char *extension) const { return base + extension; }
    std::string place_in_script(size_t line) const;

    void tell_settings();
    void tell_complaints();
    void tell_complaint(const ProductFile *source, const Lines &lines, size_t &next,
                        const char *extension, const std::string &error);
    void tell_script();
    void tell_deeds();
    void tell_rest(const char *what);

    int judge_dialogue();
    int judge_load();
    int judge_way();
    int judge_end(const Ending &ending);
    int nothing_done(const char *extension, const std::string &reason);
    int cut_off();

    const RunRecord &record;
    const Product *product;
    std::string base;
    Lines lines; // of the script; empty: not known
    Way way;
    std::vector<std::string> last_errors; // of the dialogue, behind the last value
    Account account;
};

Judge::Judge(const RunRecord &the_record, const Product *the_product)
    : record(the_record), product(the_product)
{
    const std::string name = last_component(record.log.c_str());
    base = name.substr(0, name.rfind(".log"));
    for (const Event &event : record.dialogue) {
        if (event.kind == Event::error)
            last_errors.push_back(event.value);
        else
            last_errors.clear();
    }
    if (product && record.stage >= Stage::dialogue)
        find_way();
}

// The script is that of the section whose lines the log tells of and whose questions fit.
void Judge::find_way()
{
    if (record.stage == Stage::dialogue) {
        way = retrace(record, *product, "");
        return;
    }
    for (const Section &section : product->copy.sections) {
        const Lines candidate = loaded_lines(product->copy, section.name);
        if (!section.is_read || way.is_known || !are_logged_lines(record, candidate))
            continue;
        way = retrace(record, *product, section.name);
        if (!way.is_known && !account.section.empty())
            continue;
        account.section = section.name;
        lines = candidate;
    }
}

void Judge::add(AccountEntry entry)
{
    account.entries.push_back(std::move(entry));
}

std::string Judge::place_in_script(size_t line) const
{
    return line < lines.size() ? place_of(product->copy, *lines[line]) : file(".cpy");
}

void Judge::tell_settings()
{
    for (const std::string &error : record.setting_errors)
        add({.place = file(".dat"), .what = "failed", .text = error, .filled = "", .reasons = {}});
}

void Judge::tell_complaint(const ProductFile *source, const Lines &from, size_t &next,
                           const char *extension, const std::string &error)
{
    const Line *line = find_faulty(from, next, error);
    add({.place = line ? place_of(*source, *line) : file(extension),
         .what = line && line->kind == LineKind::dropped ? "dropped" : "not understood",
         .text = line ? line->text : error,
         .filled = "",
         .reasons = line ? std::vector{error} : std::vector<std::string>()});
}

// Errors while the host is probed are answers, and those at a question were settled by asking
// again; but a line that could not be read as it was meant has done nothing.
void Judge::tell_complaints()
{
    const Lines probes = product ? section_lines(product->init, "") : Lines();
    const Lines questions =
        product && way.is_known ? loaded_lines(product->questions, way.section) : Lines();
    size_t next_probe = 0;
    size_t next_question = 0;
    for (const Event &event : record.dialogue) {
        if (event.kind != Event::error)
            continue;
        if (is_about_probe(event.value))
            tell_complaint(product ? &product->init : nullptr, probes, next_probe, ".int",
                           event.value);
        else if (is_about_question(event.value))
            tell_complaint(product ? &product->questions : nullptr, questions, next_question, ".q",
                           event.value);
    }
}

// The dropped lines; a word that is not known is told when it is run.
void Judge::tell_script()
{
    for (size_t at = 0; at < record.script.size(); at++) {
        const ScriptLine &line = record.script[at];
        if (line.is_dropped)
            add({.place = place_in_script(at),
                 .what = "dropped",
                 .text = line.text,
                 .filled = "",
                 .reasons = line.errors});
    }
}

// A command that is tried as a copy when it fails has no destination directories then; that is not
// why it failed.
bool is_afterthought(const ScriptLine &line, const std::string &error)
{
    return (line.type == MkDir || line.type == CpyIni || line.type == Rename) &&
           error.starts_with("No destination directories found");
}

std::vector<std::string> reasons_of(const ScriptLine &line, const Deed &deed)
{
    std::vector<std::string> reasons = line.errors;
    if (deed.has_failed && line.type == Error)
        reasons.push_back(deed.dest);
    reasons.insert(reasons.end(), deed.hints.begin(), deed.hints.end());
    std::copy_if(deed.errors.begin(), deed.errors.end(), std::back_inserter(reasons),
                 [&](const std::string &error) { return !is_afterthought(line, error); });
    reasons.erase(std::unique(reasons.begin(), reasons.end()), reasons.end());
    if (reasons.empty())
        reasons.push_back(line.type & Rm ? "Nothing was removed: it was not there, or could not go"
                                         : "Nothing was done, and the log does not say why");
    return reasons;
}

void Judge::tell_deeds()
{
    for (const Deed &deed : record.deeds) {
        const ScriptLine &line = record.script[deed.line];
        // Looking whether something is there has an answer even when it cannot be looked at.
        const bool is_partly_done = !deed.errors.empty() && line.type != Exist;
        if (!deed.has_failed && !is_partly_done)
            continue;
        const bool has_references = line.type != Error && line.text.find("$(") != std::string::npos;
        add({.place = place_in_script(deed.line),
             .what = deed.has_failed ? "failed" : "failed in part",
             .text = line.text,
             .filled = has_references ? filled_line(line, deed) : "",
             .reasons = reasons_of(line, deed)});
    }
}

void Judge::tell_rest(const char *what)
{
    const size_t left = account.commands - account.begun;
    if (left == 0)
        return;
    remark(file(".cpy") + ": " + what + ": " + std::to_string(left) + " of " +
           std::to_string(account.commands) + " commands " + (left == 1 ? "was" : "were") +
           " not run");
}

// --- The verdict -------------------------------------------------------------------------------

int Judge::nothing_done(const char *extension, const std::string &reason)
{
    remark(file(extension) + ": nothing was done: " + reason);
    return run_nothing;
}

int Judge::cut_off()
{
    remark("the log ends before the run does, so it cannot be judged");
    return kit_unable;
}

// A run whose files could not be loaded; run_done when that is not why nothing was done.
int Judge::judge_load()
{
    if (last_errors.empty())
        return run_done;
    const std::string &last = last_errors.back();
    if (last.starts_with("Failed to read '"))
        return nothing_done(".int", last);
    if (last.ends_with("section '" + way.section + "' given up"))
        return nothing_done(".q", last);
    if (last == "Error loading questions")
        return nothing_done(".q", last_errors.size() > 1 ? last_errors[last_errors.size() - 2]
                                                         : "there is no section for that choice");
    if (last.find(".cpy'") != std::string::npos && last.starts_with("Error "))
        return nothing_done(".cpy", last);
    return run_done;
}

// The questions were loaded, and asked as far as they were.
int Judge::judge_way()
{
    if (!way.is_known || way.end == DialogueEnd::unknown)
        return nothing_done(".q", last_errors.empty() ? "left at the menu or at a first question"
                                                      : last_errors.back());
    if (way.end == DialogueEnd::answered)
        return nothing_done(".cpy", "it has no section [" + way.section + "]");
    const bool is_error = way.end == DialogueEnd::error;
    std::vector<std::string> reasons = last_errors;
    if (is_error)
        reasons = {way.last->question->text};
    add({.place = place_of(product->questions, *way.last),
         .what = is_error              ? "stopped"
                 : last_errors.empty() ? "left here"
                                       : "rejected",
         .text = way.last->text,
         .filled = "",
         .reasons = reasons});
    remark("nothing was done");
    return run_nothing;
}

int Judge::judge_dialogue()
{
    const int status = judge_load();
    return status == run_done ? judge_way() : status;
}

int Judge::judge_end(const Ending &ending)
{
    switch (record.stage) {
    case Stage::options:
        if (!record.setting_errors.empty())
            return nothing_done(".dat", record.setting_errors.back());
        if (ending.is_known)
            return run_done;
        remark("nothing was done: the run ended with its options");
        return run_nothing;
    case Stage::dialogue:
        return judge_dialogue();
    case Stage::loading:
        return record.script_errors.empty() ? cut_off()
                                            : nothing_done(".cpy", record.script_errors.back());
    case Stage::completed:
        return account.entries.empty() ? run_done : run_faulty;
    case Stage::stopped:
        tell_rest("stopped");
        return run_stopped;
    default:
        return cut_off();
    }
}

Account Judge::draw_up(const Ending &ending)
{
    account.commands =
        static_cast<size_t>(std::count_if(record.script.begin(), record.script.end(),
                                          [](const ScriptLine &line) { return !line.is_dropped; }));
    account.begun = record.deeds.size();
    if (record.stage > Stage::options)
        tell_settings();
    tell_complaints();
    tell_script();
    tell_deeds();
    if (ending.signal != 0) {
        if (record.stage == Stage::loading || record.stage == Stage::commands)
            tell_rest("cut off");
        remark("the program was ended by signal " + std::to_string(ending.signal) + ", " +
               ::strsignal(ending.signal));
        account.status = 128 + ending.signal;
    } else if (ending.status != 0) {
        remark("the program ended with status " + std::to_string(ending.status) +
               ", as it does when its arguments make no sense");
        account.status = kit_unable;
    } else {
        account.status = judge_end(ending);
    }
    return account;
}

} // namespace

Account judge(const RunRecord &record, const Product *product, const Ending &ending)
{
    return Judge(record, product).draw_up(ending);
}

Account unjudged(const std::string &sentence)
{
    Account account;
    account.status = kit_unable;
    account.remarks.push_back(sentence);
    return account;
}

void tell(const Account &account, std::FILE *to)
{
    for (const AccountEntry &entry : account.entries) {
        std::fprintf(to, "%s: %s: %s\n", entry.place.c_str(), entry.what.c_str(),
                     entry.text.c_str());
        if (!entry.filled.empty())
            std::fprintf(to, "    %s\n", entry.filled.c_str());
        for (const std::string &reason : entry.reasons)
            std::fprintf(to, "    %s\n", reason.c_str());
    }
    for (const std::string &remark : account.remarks)
        std::fprintf(to, "%s%s\n", account.status == kit_unable ? "product-kit: " : "",
                     remark.c_str());
}
