#include "retrace.h"

#include <algorithm>
#include <optional>

#include "ini.h"
#include "installer.h"
#include "lib.h"
#include "product.h"
#include "record.h"

Store store_before_probes(const RunRecord &record, const Settings &settings)
{
    constexpr auto built_in = Ini_Fixed | Ini_Replace;
    const auto value_of = [](const std::string &text) {
        return text.empty() ? nullptr : text.c_str();
    };
    std::vector<SettingList> table = {
        {.setting = "host", .dflt = value_of(record.host), .mode = built_in},
        {.setting = "system_dir", .dflt = value_of(record.system_dir), .mode = built_in},
        {.setting = "current_dir", .dflt = value_of(record.current_dir), .mode = built_in},
        {.setting = "action", .dflt = "install", .mode = Ini_None},
    };
    for (const auto &[name, value] : settings)
        table.push_back({.setting = name.c_str(), .dflt = value_of(value), .mode = Ini_Replace});
    table.push_back({});
    Store store(ini_init());
    ini_setup(store.get(), table.data(), nullptr, 1);
    ini_process(store.get());
    return store;
}

namespace {

// One attempt: the run's way with a given flow as its first.
class Attempt {
  public:
    Attempt(const RunRecord &the_record, const Product &the_product)
        : record(the_record), product(the_product),
          store(store_before_probes(the_record, the_record.settings))
    {
    }

    // False when the log tells another story. A null section is that of an unattended run.
    bool follow(const char *first, const std::vector<std::string> &others);

    Way way;
    unsigned jumps = 0;     // guesses that were needed
    bool has_asked = false; // something was stored behind the probes

  private:
    bool follow_probes();
    bool follow_probe(const Line &line);
    void open(const std::string &name);
    DialogueEnd follow_questions(unsigned &index);
    bool jump(const std::vector<std::string> &others, unsigned &index);
    std::optional<std::string> next_stored_from(unsigned index);
    bool is_automatic(unsigned index) const;
    bool is_false(unsigned index);
    bool stores(unsigned index);
    unsigned behind(unsigned index);
    const Event *next_value();
    bool take_value(const Line &line, const char *setting, bool is_answer);

    const RunRecord &record;
    const Product &product;
    Store store;
    size_t at = 0; // in the dialogue
    std::vector<const Line *> lines;
    std::vector<quest> records; // the lines' own texts
    questions set = {};         // for the installer's functions
};

const Event *Attempt::next_value()
{
    while (at < record.dialogue.size() && record.dialogue[at].kind == Event::error)
        at++;
    return at < record.dialogue.size() ? &record.dialogue[at] : nullptr;
}

// True when the next value that was stored is one of this setting, which is then taken over.
bool Attempt::take_value(const Line &line, const char *setting, bool is_answer)
{
    const Event *event = next_value();
    if (!event || event->name != setting)
        return false;
    // As in the run, where reading also decides where a new value goes.
    const char *offered = is_answer ? ini_value_name(store.get(), setting) : nullptr;
    way.steps.push_back({.line = &line,
                         .is_answer = is_answer,
                         .is_refused = event->kind == Event::refused,
                         .is_cut = event->is_cut,
                         .setting = setting,
                         .value = event->value,
                         .offered = offered ? offered : ""});
    if (event->kind == Event::stored)
        ini_add_name(store.get(), setting, event->value.c_str());
    at++;
    return true;
}

// --- The probes ------------------------------------------------------------------------------

bool Attempt::follow_probe(const Line &line)
{
    const init_item &item = *line.probe;
    if (!init_is_wanted(item, store.get()))
        return true;
    switch (item.mode) {
    case IExist:
        return take_value(line, item.b, false);
    case ICopy:
        return take_value(line, item.a, false);
    case ITimeDate:
        return !ini_value_name(store.get(), item.a) || take_value(line, item.b, false);
    case IRFile:
        // A file that is not there gives no value.
        take_value(line, item.b, false);
        return true;
    case IHTTP_User:
    case IHTTP_Group:
    case IHTTP_Root:
    case IHTTP_Scripts:
        return take_value(line, item.a, false) || take_value(line, item.b, false);
    default:
        return true;
    }
}

bool Attempt::follow_probes()
{
    for (int number = 0; const Line *line = find_entry(product.init, "", number); number++)
        if (!follow_probe(*line))
            return false;
    return true;
}

// --- The questions ---------------------------------------------------------------------------

void Attempt::open(const std::string &name)
{
    way.section = name;
    lines.clear();
    records.clear();
    for (int number = 0; const Line *line = find_entry(product.questions, name, number); number++) {
        lines.push_back(line);
        records.push_back(*line->question);
    }
    set = {.count = static_cast<std::uint32_t>(records.size()),
           .last_error = nullptr,
           .section = nullptr,
           .list = records.data(),
           .ini = store.get()};
}

bool Attempt::is_automatic(unsigned index) const
{
    const QType type = quest_type(&set, index);
    return type == QCopy || type == QXExist || type == QError || type == QLoop;
}

bool Attempt::is_false(unsigned index)
{
    return isfalse(ini_value_name(store.get(), quest_setting(&set, index)));
}

// Whether a step stores a value when its turn comes.
bool Attempt::stores(unsigned index)
{
    switch (quest_type(&set, index)) {
    case QCopy:
        return ini_value_name(store.get(), quest_text(&set, index)) != nullptr;
    case QXExist:
        return true;
    case QError:
    case QLoop:
        return false;
    default:
        return quest_is_asked(&set, index);
    }
}

// The step behind one that stores nothing.
unsigned Attempt::behind(unsigned index)
{
    if (quest_type(&set, index) == QLoop && is_false(index))
        return static_cast<unsigned>(std::max(0, s_atoi(quest_text(&set, index))));
    return index + 1;
}

// The setting that is stored next when the run goes on at a step; none when it comes to an end.
std::optional<std::string> Attempt::next_stored_from(unsigned index)
{
    for (unsigned steps = 0; index < set.count && steps < set.count + 1000; steps++) {
        if (stores(index))
            return quest_setting(&set, index);
        if (quest_type(&set, index) == QError && is_false(index))
            break;
        index = behind(index);
    }
    return std::nullopt;
}

// Where the run has gone on when the next value does not come from the step that is due: at the
// beginning, for a change of the answers; back, by "b"; or, by "q", in a flow of the menu.
bool Attempt::jump(const std::vector<std::string> &others, unsigned &index)
{
    constexpr unsigned most = 1000;
    const Event *event = next_value();
    if (way.end == DialogueEnd::error || ++jumps > most)
        return false;
    if (way.end == DialogueEnd::answered) {
        index = 0;
        return true;
    }
    while (index-- > 0)
        if (next_stored_from(index) == event->name)
            return true;
    for (const std::string &other : others) {
        open(other);
        index = 0;
        if (next_stored_from(index) == event->name)
            return true;
    }
    return false;
}

// Follows the steps from one on for as long as they fit; `index` ends at the one that does not.
DialogueEnd Attempt::follow_questions(unsigned &index)
{
    constexpr unsigned most = 1000;
    for (unsigned idle = 0; index < set.count && idle < set.count + most; idle++) {
        if (quest_type(&set, index) == QError && is_false(index))
            return DialogueEnd::error;
        if (!stores(index)) {
            index = behind(index);
            continue;
        }
        if (!take_value(*lines[index], quest_setting(&set, index), !is_automatic(index)))
            return is_automatic(index) ? DialogueEnd::unknown : DialogueEnd::asking;
        index++;
        idle = 0;
    }
    return index < set.count ? DialogueEnd::unknown : DialogueEnd::answered;
}

bool Attempt::follow(const char *first, const std::vector<std::string> &others)
{
    if (!follow_probes())
        return false;
    const bool upgrades = s_strcmp(ini_value_name(store.get(), "action"), "upgrade") == 0;
    open(first ? first : flows[upgrades].section);
    const size_t probes = way.steps.size();
    unsigned index = 0;
    do
        way.end = follow_questions(index);
    while (next_value() && way.end != DialogueEnd::unknown && jump(others, index));
    way.last = index < set.count ? lines[index] : nullptr;
    has_asked = way.steps.size() > probes;
    return !next_value();
}

// The flows that a run can have begun with; null: the one that an unattended run takes.
std::vector<const char *> first_flows(const RunRecord &record)
{
    if (record.has_tag)
        return {record.tag.c_str()};
    if (record.automate)
        return {nullptr};
    return {flows[0].section, flows[1].section, flows[2].section};
}

// Whether a way leads to a section's copy script; "": any way does.
bool is_of(const Way &way, const std::string &section)
{
    return section.empty() || s_stricmp(way.section.c_str(), section.c_str()) == 0;
}

} // namespace

Way retrace(const RunRecord &record, const Product &product, const std::string &section)
{
    const std::vector<const char *> firsts = first_flows(record);
    const std::vector<std::string> others =
        firsts.size() > 1 ? std::vector<std::string>(firsts.begin(), firsts.end())
                          : std::vector<std::string>();
    Way best;
    unsigned fewest = 0;
    bool has_asked = false;
    for (const char *first : firsts) {
        Attempt attempt(record, product);
        if (!attempt.follow(first, others) || !is_of(attempt.way, section) ||
            (best.is_known && attempt.jumps >= fewest))
            continue;
        best = std::move(attempt.way);
        best.is_known = true;
        fewest = attempt.jumps;
        has_asked = attempt.has_asked;
    }
    // Left at the menu, or at the first question of whatever flow.
    if (firsts.size() > 1 && section.empty() && !has_asked)
        best.end = DialogueEnd::unknown;
    return best;
}
