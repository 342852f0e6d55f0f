#include "record.h"

#include <string_view>

#include "lib.h"

namespace {

// What stands between a beginning and an end; false when the text has another shape.
bool cut_out(std::string_view text, std::string_view begin, std::string_view end,
             std::string &inner)
{
    if (!text.starts_with(begin) || text.size() < begin.size() + end.size() || !text.ends_with(end))
        return false;
    inner = text.substr(begin.size(), text.size() - begin.size() - end.size());
    return true;
}

// The program cuts a message there, whatever it ends with.
bool may_be_cut(std::string_view message)
{
    return message.size() >= line_size - 1;
}

// "<begin>name<between>value'", the end of which may be cut off.
bool read_pair(std::string_view text, std::string_view begin, std::string_view between,
               std::pair<std::string, std::string> &pair)
{
    const size_t at = text.find(between);
    if (!text.starts_with(begin) || at == std::string_view::npos)
        return false;
    pair.first = text.substr(begin.size(), at - begin.size());
    pair.second = text.substr(at + between.size());
    if (pair.second.ends_with('\''))
        pair.second.pop_back();
    return true;
}

bool read_stored(std::string_view text, Event &event)
{
    std::pair<std::string, std::string> pair;
    if (read_pair(text, "Ini value for '", "' set to '", pair) ||
        read_pair(text, "Ini setting '", "' created and set to '", pair)) {
        event = {Event::stored, pair.first, pair.second, may_be_cut(text)};
        return true;
    }
    event = {Event::refused, "", "", false};
    return cut_out(text, "Ini value for '", "' not addded, value is fixed", event.name) ||
           cut_out(text, "Ini value for '", "' not added, value was empty", event.name);
}

// The log tells the type by its number.
void take_type(std::string_view text, CType &type)
{
    std::string number;
    if (cut_out(text, "Copy line 'type' is [", "]", number))
        type = static_cast<CType>(s_atoi(number.c_str()));
}

constexpr std::string_view script_line_begin = "Process .cpy file line [";
constexpr std::string_view script_begin = "Processing copy script...";

} // namespace

bool begins_run(const LogLine &line)
{
    return line.level == LogInfo && line.text.starts_with("Log file opened in '");
}

void RunRecord::take(const LogLine &line)
{
    switch (stage) {
    case Stage::nothing:
        if (begins_run(line) && cut_out(line.text, "Log file opened in '", "'", log)) {
            process = line.process;
            stage = Stage::options;
        }
        break;
    case Stage::options:
        take_option(line);
        break;
    case Stage::settings:
        take_setting(line);
        break;
    case Stage::dialogue:
        take_dialogue(line);
        break;
    case Stage::loading:
        take_script_line(line);
        break;
    case Stage::commands:
        take_command(line);
        break;
    case Stage::completed:
    case Stage::stopped:
        break;
    }
}

void RunRecord::take_option(const LogLine &line)
{
    if (line.text == "Automated install/upgrade...")
        automate = true;
    else if (cut_out(line.text, "Special mode [", "]", tag))
        has_tag = true;
    else if (cut_out(line.text, "host=", "", host))
        stage = Stage::settings;
    else if (line.level == LogError && line.text.starts_with("Error opening '"))
        setting_errors.push_back(line.text);
}

void RunRecord::take_setting(const LogLine &line)
{
    std::pair<std::string, std::string> pair;
    if (line.level == LogError)
        setting_errors.push_back(line.text);
    else if (read_pair(line.text, "Adding '", "'='", pair))
        settings.push_back(pair);
    else if (line.text == "Finished processing replacable settings")
        stage = Stage::dialogue;
    else if (!cut_out(line.text, "system_dir=", "", system_dir))
        cut_out(line.text, "current_dir=", "", current_dir);
}

void RunRecord::take_dialogue(const LogLine &line)
{
    Event event;
    if (line.level == LogError)
        dialogue.push_back({Event::error, "", line.text, false});
    else if (read_stored(line.text, event))
        dialogue.push_back(std::move(event));
    else if (line.text.starts_with(script_line_begin) || line.text == script_begin) {
        stage = Stage::loading;
        take_script_line(line);
    }
}

void RunRecord::begin_script_line(std::string_view text)
{
    // The end is missing where the log has cut the message.
    if (text.ends_with(']'))
        text.remove_suffix(1);
    script.push_back({});
    script.back().text = text;
}

void RunRecord::take_script_line(const LogLine &line)
{
    const std::string_view text = line.text;
    if (text.starts_with(script_line_begin)) {
        begin_script_line(text.substr(script_line_begin.size()));
        return;
    }
    if (text == script_begin) {
        for (size_t at = 0; at < script.size(); at++)
            if (!script[at].is_dropped)
                kept.push_back(at);
        stage = Stage::commands;
        return;
    }
    const bool is_of_file =
        text.starts_with("Error reading '") || text == "Memory allocation error";
    if (line.level == LogError && (is_of_file || script.empty())) {
        script_errors.push_back(line.text);
        return;
    }
    ScriptLine &last = script.back();
    if (line.level == LogError) {
        last.errors.push_back(line.text);
        last.is_dropped = last.is_dropped || text.starts_with("Missing ");
    } else if (!cut_out(text, "Copy line 'not' is [", "]", last.not_) &&
               !cut_out(text, "Copy line 'control' is [", "]", last.control) &&
               !cut_out(text, "Copy line 'control_cmp' is [", "]", last.control_cmp) &&
               !cut_out(text, "Copy line 'destination' is [", "]", last.dest) &&
               !cut_out(text, "Copy list error string is '", "'", last.dest)) {
        take_type(text, last.type);
    }
}

// The message holds "type:source->destination,not,control,comparison".
void RunRecord::begin_command(std::string_view fields)
{
    if (deeds.size() >= kept.size())
        return;
    const size_t at = kept[deeds.size()];
    const ScriptLine &line = script[at];
    const std::string exclusions = line.not_ == "-" ? "" : line.not_;
    const std::string ending = "," + exclusions + "," + line.control + "," + line.control_cmp + "]";
    if (fields.ends_with(ending))
        fields.remove_suffix(ending.size());
    fields.remove_prefix(std::min(fields.find(':') + 1, fields.size()));
    const size_t arrow = std::min(fields.find("->"), fields.size());
    Deed deed = {};
    deed.line = at;
    deed.source = fields.substr(0, arrow);
    deed.dest = fields.substr(std::min(arrow + 2, fields.size()));
    deeds.push_back(std::move(deed));
}

void RunRecord::take_command(const LogLine &line)
{
    constexpr std::string_view begin = "Processing [";
    const std::string_view text = line.text;
    if (text.starts_with(begin)) {
        begin_command(text.substr(begin.size()));
        return;
    }
    if (text == "Copy script completed successfully") {
        stage = Stage::completed;
        return;
    }
    if (deeds.empty())
        return;
    Deed &deed = deeds.back();
    std::string name;
    if (line.level == LogError)
        deed.errors.push_back(line.text);
    else if (text == "Doing nothing due to controlling setting")
        deed.is_skipped = true;
    else if (text.starts_with("No files found to "))
        deed.hints.push_back(line.text);
    else if (cut_out(text, "Found user id for '", "'=-1", name))
        deed.hints.push_back("There is no user '" + name + "'");
    else if (text.starts_with("Stop on fail "))
        deed.has_failed = true;
    if (text == "Stop on fail set, stopping...")
        stage = Stage::stopped;
}
