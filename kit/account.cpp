#include "account.h"

#include <algorithm>
#include <cstring>

#include "kit.h"
#include "lib.h"
#include "product.h"
#include "record.h"

namespace {

// The lines of a section that are settings, questions or commands, dropped ones too, in file order.
std::vector<const Line *> loaded_lines(const ProductFile &file, const std::string &section)
{
    std::vector<const Line *> lines = section_lines(file, section);
    std::erase_if(lines, [](const Line *line) {
        return line->kind != LineKind::entry && line->kind != LineKind::dropped;
    });
    return lines;
}

// Whether a line is what the log tells of; a message that is cut holds only its beginning.
bool is_same(const Line *line, const ScriptLine &logged)
{
    const size_t most = line_size - 1 - std::strlen("Process .cpy file line [");
    return logged.text.size() >= most - 1 ? line->text.starts_with(logged.text)
                                          : line->text == logged.text;
}

// Draws up one account.
class Judge {
  public:
    Judge(const RunRecord &the_record, const Product *the_product)
        : record(the_record), product(the_product)
    {
        const std::string name = last_component(record.log.c_str());
        base = name.substr(0, name.rfind(".log"));
        find_section_of_script();
    }

    Account draw_up(const Ending &ending);

  private:
    void find_section_of_script();
    std::string place_in_script(size_t line) const;
    void add(AccountEntry entry) { account.entries.push_back(std::move(entry)); }
    void remark(const std::string &sentence) { account.remarks.push_back(sentence); }

    void tell_settings();
    void tell_dropped();
    void tell_deeds();
    int outcome();
    int nothing_done();
    int cut_off();
    void tell_rest(const char *what);

    const RunRecord &record;
    const Product *product;
    std::string base;
    std::vector<const Line *> lines; // of the script; empty: not known
    Account account;
};

// The section whose lines are those that the log tells of, the run's own one first.
void Judge::find_section_of_script()
{
    if (!product || record.stage < Stage::loading)
        return;
    std::vector<std::string> names = {record.tag};
    for (const Section &section : product->copy.sections)
        if (section.is_read)
            names.push_back(section.name);
    for (const std::string &name : names) {
        const std::vector<const Line *> candidate = loaded_lines(product->copy, name);
        if (name.empty() || candidate.size() < record.script.size() ||
            !std::equal(
                record.script.begin(), record.script.end(), candidate.begin(),
                [](const ScriptLine &logged, const Line *line) { return is_same(line, logged); }))
            continue;
        lines = candidate;
        account.section = name;
        return;
    }
}

std::string Judge::place_in_script(size_t line) const
{
    return line < lines.size() ? place_of(product->copy, *lines[line]) : base + ".cpy";
}

void Judge::tell_settings()
{
    for (const std::string &error : record.setting_errors)
        add({.place = base + ".dat", .what = "failed", .text = error, .filled = "", .reasons = {}});
}

// A line of which something is missing; a word that is not known is told when it is run.
void Judge::tell_dropped()
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

bool same_words(const std::string &a, const std::string &b)
{
    std::string first = a;
    std::string second = b;
    char *rest_of_first = first.data();
    char *rest_of_second = second.data();
    while (true) {
        const char *word = next_field(&rest_of_first);
        const char *other = next_field(&rest_of_second);
        if (!word || !other)
            return !word && !other;
        if (std::strcmp(word, other) != 0)
            return false;
    }
}

bool is_word(const std::string &text, const char *word)
{
    return s_stricmp(text.substr(0, text.find_first_of(" \t")).c_str(), word) == 0;
}

// Looking whether something is there has an answer, also when it cannot be looked at.
bool is_looking(const ScriptLine &line)
{
    return is_word(line.text, "Exist");
}

std::vector<std::string> reasons_of(const ScriptLine &line, const Deed &deed)
{
    std::vector<std::string> reasons = line.errors;
    if (deed.has_failed && is_word(line.text, "Error"))
        reasons.push_back(line.dest);
    reasons.insert(reasons.end(), deed.hints.begin(), deed.hints.end());
    reasons.insert(reasons.end(), deed.errors.begin(), deed.errors.end());
    if (reasons.empty())
        reasons.push_back("Nothing was done, and the log does not say why");
    return reasons;
}

void Judge::tell_deeds()
{
    for (const Deed &deed : record.deeds) {
        const ScriptLine &line = record.script[deed.line];
        if (!deed.has_failed && (deed.errors.empty() || is_looking(line)))
            continue;
        add({.place = place_in_script(deed.line),
             .what = deed.has_failed ? "failed" : "failed in part",
             .text = line.text,
             .filled = same_words(line.text, deed.filled) ? "" : deed.filled,
             .reasons = reasons_of(line, deed)});
    }
}

void Judge::tell_rest(const char *what)
{
    const size_t left = account.commands - account.begun;
    remark(base + ".cpy: " + what + ": " + std::to_string(left) + " of " +
           std::to_string(account.commands) + (left == 1 ? " commands was" : " commands were") +
           " not run");
}

int Judge::nothing_done()
{
    std::string reason;
    for (const Event &event : record.dialogue)
        if (event.kind == Event::error)
            reason = event.value;
    add({.place = base + ".q",
         .what = "nothing was done",
         .text = reason,
         .filled = "",
         .reasons = {}});
    return run_nothing;
}

int Judge::cut_off()
{
    remark("the log ends before the run does");
    return kit_unable;
}

int Judge::outcome()
{
    switch (record.stage) {
    case Stage::nothing:
        return cut_off();
    case Stage::options:
        return record.setting_errors.empty() ? run_done : run_nothing;
    case Stage::settings:
        return cut_off();
    case Stage::dialogue:
        return nothing_done();
    case Stage::loading:
        return record.script_errors.empty() ? cut_off() : run_nothing;
    case Stage::commands:
        return cut_off();
    case Stage::completed:
        return account.entries.empty() ? run_done : run_faulty;
    case Stage::stopped:
        tell_rest("stopped");
        return run_stopped;
    }
    return kit_unable;
}

Account Judge::draw_up(const Ending &ending)
{
    account.commands =
        static_cast<size_t>(std::count_if(record.script.begin(), record.script.end(),
                                          [](const ScriptLine &line) { return !line.is_dropped; }));
    account.begun = record.deeds.size();
    tell_settings();
    tell_dropped();
    tell_deeds();
    if (ending.signal != 0) {
        if (record.stage == Stage::loading || record.stage == Stage::commands)
            tell_rest("cut off");
        remark(std::string("ended by signal ") + std::to_string(ending.signal) + " (" +
               ::strsignal(ending.signal) + ")");
        account.status = 128 + ending.signal;
    } else if (ending.status != 0) {
        remark("the program ended with status " + std::to_string(ending.status) +
               ", as it does when its arguments make no sense");
        account.status = kit_unable;
    } else {
        account.status = outcome();
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
        std::fprintf(to, "product-kit: %s\n", remark.c_str());
}
