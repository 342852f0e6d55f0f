#include "flow.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "ini.h"
#include "lib.h"

// --- Values ----------------------------------------------------------------------------------

namespace {

constexpr size_t most_texts = 16;

bool is_whole(const std::string &text)
{
    return text.find("$(") == std::string::npos;
}

} // namespace

bool Value::is_known() const
{
    return !anything && std::all_of(texts.begin(), texts.end(), is_whole);
}

const std::string *Value::only_text() const
{
    return !anything && texts.size() == 1 ? &*texts.begin() : nullptr;
}

void Value::join(const Value &other)
{
    may_be_none = may_be_none || other.may_be_none;
    anything = anything || other.anything;
    texts.insert(other.texts.begin(), other.texts.end());
    if (texts.size() > most_texts) {
        anything = true;
        texts.clear();
    }
}

// --- Mentions --------------------------------------------------------------------------------

namespace {

constexpr const char *built_ins[] = {"host", "system_dir", "current_dir", "action"};

const Value no_value;

} // namespace

bool is_built_in(const std::string &name)
{
    return std::find(std::begin(built_ins), std::end(built_ins), name) != std::end(built_ins);
}

void Flow::add_mention(Role role, const char *name, const ProductFile &file, const Line &line)
{
    if (name)
        all_mentions.push_back({.role = role, .name = name, .file = &file, .line = &line});
}

void Flow::add_references(const char *text, const ProductFile &file, const Line &line)
{
    for_each_reference(text, [&](const Reference &reference) {
        if (reference.end)
            add_mention(Role::reference, reference.name, file, line);
    });
}

void Flow::mention_probe(const Line &line)
{
    const ProductFile &file = product.init;
    const init_item &probe = *line.probe;
    // Without a word to compare it with the control does not count.
    add_mention(probe.compare ? Role::control : Role::compare, probe.control, file, line);
    switch (probe.mode) {
    case IExist:
    case IRFile:
        add_references(probe.a, file, line);
        add_mention(Role::target, probe.b, file, line);
        break;
    case IWFile:
        add_references(probe.a, file, line);
        add_mention(Role::value, probe.b, file, line);
        break;
    case ICopy:
        add_mention(Role::value, probe.b, file, line);
        add_mention(Role::target, probe.a, file, line);
        break;
    case ITimeDate:
        add_mention(Role::source, probe.a, file, line);
        add_mention(Role::target, probe.b, file, line);
        break;
    default:
        if (probe.mode & IHTTP) {
            add_mention(Role::target, probe.a, file, line);
            add_mention(Role::target, probe.b, file, line);
        }
        break;
    }
}

void Flow::mention_question(const Line &line)
{
    const ProductFile &file = product.questions;
    const quest &question = *line.question;
    switch (question.type) {
    case QCopy:
        add_mention(Role::source, question.text, file, line);
        add_mention(Role::target, question.setting, file, line);
        break;
    case QXExist:
        add_references(question.text, file, line);
        add_mention(Role::target, question.setting, file, line);
        break;
    case QError:
        add_references(question.text, file, line);
        add_mention(Role::source, question.setting, file, line);
        break;
    case QLoop:
        add_mention(Role::source, question.setting, file, line);
        break;
    default:
        add_references(question.text, file, line);
        add_mention(Role::control, question.control, file, line);
        if (question.control)
            add_mention(Role::compare, question.control_cmp, file, line);
        add_mention(Role::target, question.setting, file, line);
        break;
    }
}

void Flow::mention_command(const Line &line)
{
    const ProductFile &file = product.copy;
    const copy_cmd &command = *line.command;
    add_mention(Role::control, command.control, file, line);
    if (command.control)
        add_mention(Role::compare, command.control_cmp, file, line);
    if (command.type == Error) {
        add_mention(Role::source, command.source, file, line);
        add_references(command.dest, file, line);
        return;
    }
    add_references(command.source, file, line);
    if (command.type == Exist || command.type == RFile)
        add_mention(Role::target, command.dest, file, line);
    else if (command.type == WFile)
        add_mention(Role::value, command.dest, file, line);
    else
        add_references(command.dest, file, line);
}

void Flow::collect_mentions()
{
    for (const Line &line : product.data.lines)
        if (line.setting)
            add_references(line.setting->value.c_str(), product.data, line);
    for (const Line &line : product.init.lines)
        if (line.kind == LineKind::entry)
            mention_probe(line);
    for (const Line &line : product.questions.lines)
        if (line.kind == LineKind::entry)
            mention_question(line);
    for (const Line &line : product.copy.lines)
        if (line.kind == LineKind::entry)
            mention_command(line);
}

void Flow::build_settings()
{
    for (const char *name : built_ins) {
        known[name].built_in = true;
        data_names.emplace(name, name);
    }
    for (const Line &line : product.data.lines)
        if (line.setting) {
            Setting &setting = known[line.setting->name];
            if (!setting.data)
                setting.data = &line;
            data_names.emplace(folded(line.setting->name), line.setting->name);
        }
    for (const Mention &mention : all_mentions) {
        by_line[mention.line].push_back(&mention);
        if (mention.role == Role::target)
            known[mention.name].setters.push_back(&mention);
    }
    std::vector<std::string> spelt;
    for (const auto &[name, setting] : known)
        spelt.push_back(name);
    names = Words(std::move(spelt));
    for (const Mention &mention : all_mentions)
        if (mention.role != Role::target)
            if (const auto found = known.find(mention.name); found != known.end())
                found->second.uses++;
}

const std::vector<const Mention *> &Flow::mentions_of(const Line &line) const
{
    static const std::vector<const Mention *> none;
    const auto found = by_line.find(&line);
    return found == by_line.end() ? none : found->second;
}

const Setting *Flow::find(const std::string &name) const
{
    const auto found = known.find(name);
    return found == known.end() ? nullptr : &found->second;
}

const std::string *Flow::data_name(const std::string &name) const
{
    const auto found = data_names.find(folded(name));
    return found == data_names.end() ? nullptr : &found->second;
}

std::string Flow::nearest(const std::string &word) const
{
    return nearest_word(word, names);
}

std::string Flow::nearest_other(const std::string &name) const
{
    NearestWord nearest(name);
    nearest.look_among(names, [&](const std::string &other) {
        return other == name ? NearestWord::not_meant : 0;
    });
    return nearest.best();
}

// --- The data file ---------------------------------------------------------------------------

std::string Flow::resolve(const std::string &name, std::set<std::string> &open)
{
    if (const auto done = resolved_values.find(name); done != resolved_values.end())
        return done->second;
    const Setting *setting = find(name);
    if (!setting || !setting->data || !open.insert(name).second)
        return "";
    const char *text = setting->data->setting->value.c_str();
    std::string value;
    for_each_reference(text, [&](const Reference &reference) {
        if (!reference.end)
            return;
        value.append(text, reference.begin);
        text = reference.end;
        // References inside the data file are resolved without regard to case.
        const std::string *other = data_name(reference.name);
        if (!other || (is_built_in(*other) && *other != "action") || open.contains(*other))
            value.append(reference.begin, reference.end);
        else if (*other != "action")
            value += resolve(*other, open);
    });
    value += text;
    value.resize(std::min<size_t>(value.size(), line_size - 1));
    open.erase(name);
    return resolved_values[name] = value;
}

const std::string &Flow::resolved(const std::string &name) const
{
    static const std::string none;
    const auto found = resolved_values.find(name);
    return found == resolved_values.end() ? none : found->second;
}

const std::string &Flow::path(const std::string &field) const
{
    const auto [known_path, is_new] = paths.try_emplace(field);
    std::string &result = known_path->second;
    if (!is_new)
        return result;
    const char *text = field.c_str();
    for_each_reference(field.c_str(), [&](const Reference &reference) {
        if (!reference.end)
            return;
        result.append(text, reference.begin);
        text = reference.end;
        const Setting *setting = find(reference.name);
        const bool is_certain = setting && setting->data && !setting->built_in &&
                                setting->setters.empty() && !resolved(reference.name).empty();
        result +=
            is_certain ? resolved(reference.name) : std::string(reference.begin, reference.end);
    });
    result += text;
    for (const std::string_view here : {"$(current_dir)/", "./"})
        while (result.starts_with(here))
            result.erase(0, here.size());
    return result;
}

// --- The walk --------------------------------------------------------------------------------

// The values at one moment: those after the probes, which all sections share, and what has changed
// since.
struct Flow::State {
    using Values = std::unordered_map<std::string, Value>;

    std::shared_ptr<const Values> base;
    Values changed;

    const Value &of(const std::string &name) const
    {
        if (const auto found = changed.find(name); found != changed.end())
            return found->second;
        if (base)
            if (const auto found = base->find(name); found != base->end())
                return found->second;
        return no_value;
    }

    // A setting of the data file keeps one value and refuses an empty one; any other collects them.
    void set(const std::string &name, Value value, bool for_certain, bool is_of_data)
    {
        const Value before = of(name);
        if (!for_certain || (!is_of_data && !before.must_be_none()) || value.must_be_none()) {
            value.join(before);
            if (!before.may_be_none)
                value.may_be_none = false;
        }
        changed[name] = std::move(value);
    }
};

namespace {

Value text_value(std::initializer_list<std::string> texts)
{
    Value value;
    value.may_be_none = false;
    value.texts = texts;
    return value;
}

Value any_value()
{
    Value value;
    value.may_be_none = false;
    value.anything = true;
    return value;
}

const Value truth = text_value({"true", "false"});

} // namespace

void Flow::note(const Line &line, const State &state, std::unordered_map<const Line *, Seen> &seen)
{
    const auto found = by_line.find(&line);
    if (found == by_line.end())
        return;
    Seen &values = seen[&line];
    for (const Mention *mention : found->second) {
        const auto same = std::find_if(values.begin(), values.end(),
                                       [&](const auto &one) { return one.first == mention->name; });
        if (same != values.end())
            same->second.join(state.of(mention->name));
        else
            values.emplace_back(mention->name, state.of(mention->name));
    }
}

void Flow::walk_probes(State &state)
{
    for (const Line &line : product.init.lines) {
        if (line.kind != LineKind::entry)
            continue;
        note(line, state, seen_at);
        const init_item &probe = *line.probe;
        const bool always = !probe.compare;
        const auto set = [&](const char *name, const Value &value, bool for_certain) {
            state.set(name, value, for_certain, find(name)->data || is_built_in(name));
        };
        switch (probe.mode) {
        case IExist:
            set(probe.b, truth, always);
            break;
        case ICopy: {
            Value value = state.of(probe.b);
            if (value.may_be_none) {
                value.join(text_value({probe.b}));
                value.may_be_none = false;
            }
            set(probe.a, value, always);
            break;
        }
        case IRFile:
            set(probe.b, any_value(), false);
            break;
        case ITimeDate: {
            // Of the time only its form is known.
            Value value = any_value();
            value.texts = state.of(probe.a).texts;
            set(probe.b, value, always);
            break;
        }
        case IWFile:
            break;
        default:
            if (probe.mode & IHTTP) {
                set(probe.a, any_value(), false);
                set(probe.b, text_value({"true"}), false);
            }
            break;
        }
    }
}

namespace {

Value answer_value(const quest &question)
{
    return question.type & QYN ? truth : any_value();
}

// For each line of a section whether a jump ahead may pass over it.
std::vector<bool> skippable(const std::vector<const Line *> &lines)
{
    std::vector<bool> skipped(lines.size(), false);
    for (size_t at = 0; at < lines.size(); at++)
        if (lines[at]->question->type == QLoop) {
            const int target = s_atoi(lines[at]->question->text);
            for (size_t next = at + 1; next < lines.size() && static_cast<int>(next) < target;
                 next++)
                skipped[next] = true;
        }
    return skipped;
}

} // namespace

void Flow::walk_questions(State &state, const std::vector<const Line *> &lines, bool first)
{
    const std::vector<bool> skipped = skippable(lines);
    for (size_t at = 0; at < lines.size(); at++) {
        const Line &line = *lines[at];
        const quest &question = *line.question;
        note(line, state, seen_at);
        if (first)
            note(line, state, seen_at_load);
        if (question.type == QError || question.type == QLoop)
            continue;
        Value value = question.type == QXExist ? truth
                      : question.type == QCopy ? state.of(question.text)
                                               : answer_value(question);
        const bool is_asked = question.type != QXExist && question.type != QCopy;
        const bool for_certain = first && !skipped[at] && !(is_asked && question.control) &&
                                 !(question.type == QCopy && value.may_be_none);
        state.set(question.setting, std::move(value), for_certain,
                  find(question.setting)->data || is_built_in(question.setting));
    }
}

void Flow::walk_commands(State &state, const std::vector<const Line *> &lines)
{
    const State loaded = state;
    for (const Line *line : lines) {
        note(*line, loaded, seen_at_load);
        note(*line, state, seen_at);
        const copy_cmd &command = *line->command;
        if (command.type == Exist)
            state.set(command.dest, truth, !command.control, find(command.dest)->data != nullptr);
        else if (command.type == RFile)
            state.set(command.dest, any_value(), false, true);
    }
}

void Flow::walk()
{
    State start;
    for (const auto &[name, setting] : known)
        if (setting.built_in)
            start.changed[name] = name == "action" ? text_value({"install"}) : any_value();
        else if (setting.data && !resolved(name).empty())
            start.changed[name] = text_value({resolved(name)});
    walk_probes(start);
    const auto base = std::make_shared<const State::Values>(std::move(start.changed));
    std::set<std::string> done;
    for (const ProductFile *file : {&product.questions, &product.copy})
        for (const Section &section : file->sections) {
            const std::string name = folded(section.name);
            if (!section.is_read || name.empty() || !done.insert(name).second)
                continue;
            State state{.base = base, .changed = {}};
            const auto asked = entries_of(product.questions, name);
            walk_questions(state, asked, true);
            // Again: a jump back, or answers that are changed, come by with all that was set.
            State again = state;
            walk_questions(again, asked, false);
            walk_commands(state, entries_of(product.copy, name));
        }
}

const Value &Flow::at(const Line &line, const std::string &name) const
{
    if (const auto found = seen_at.find(&line); found != seen_at.end())
        for (const auto &[seen, value] : found->second)
            if (seen == name)
                return value;
    return no_value;
}

const Value &Flow::at_load(const Line &line, const std::string &name) const
{
    if (const auto found = seen_at_load.find(&line); found != seen_at_load.end())
        for (const auto &[seen, value] : found->second)
            if (seen == name)
                return value;
    return no_value;
}

Flow::Flow(const Product &of) : product(of)
{
    collect_mentions();
    build_settings();
    std::set<std::string> open;
    for (const auto &[name, setting] : known)
        resolve(name, open);
    walk();
}
