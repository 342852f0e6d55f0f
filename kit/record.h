// What a run has left in its log: the settings it began with, what was stored while the host was
// probed and the questions were asked, and what each command of the copy script did. It is read out
// of the log alone; no file of the product is needed.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "copy.h"
#include "logfile.h"

// How far a run came.
enum class Stage {
    nothing,   // not one line
    options,   // its command line
    settings,  // its data file
    dialogue,  // the probes of the host, and then the questions
    loading,   // a section of the copy script
    commands,  // of that section
    completed, // the last of them
    stopped,   // at one that failed
};

// Something that happened in the dialogue.
struct Event {
    enum Kind {
        stored,  // a value, or the refusal of one
        refused, // the store kept what it had
        error,
    };
    Kind kind;
    std::string name;  // of the setting; "" for an error
    std::string value; // that was stored; the error's text
    bool is_cut;       // the log does not hold the whole value
};

// A line of the loaded section.
struct ScriptLine {
    std::string text;
    std::string not_; // its fields as far as it has them
    std::string control;
    std::string control_cmp;
    std::string dest; // for Error: the message
    CType type;       // 0: its word is not known
    std::vector<std::string> errors;
    bool is_dropped;
};

// A command that was begun.
struct Deed {
    size_t line;        // its place in the script
    std::string source; // its two fields that may hold references, filled in
    std::string dest;
    std::vector<std::string> errors;
    std::vector<std::string> hints; // what else the log says about a failure
    bool is_skipped;                // by its controlling setting
    bool has_failed;
};

// Names and values.
using Settings = std::vector<std::pair<std::string, std::string>>;

struct RunRecord {
    int process = 0;
    Stage stage = Stage::nothing;
    bool automate = false;
    bool has_tag = false;
    std::string tag; // of -special
    std::string log; // the path that the run gave its log
    std::string host;
    std::string system_dir;
    std::string current_dir;
    Settings settings; // of the data file, as they are written
    std::vector<std::string> setting_errors;
    std::vector<Event> dialogue;
    std::vector<ScriptLine> script;
    std::vector<Deed> deeds;
    std::vector<std::string> script_errors; // why a script could not be loaded

    // Takes over the next message of the run.
    void take(const LogLine &line);

  private:
    void take_option(const LogLine &line);
    void take_setting(const LogLine &line);
    void take_dialogue(const LogLine &line);
    void take_script_line(const LogLine &line);
    void take_command(const LogLine &line);
    void begin_script_line(std::string_view text);
    void begin_command(std::string_view fields);

    std::vector<size_t> kept; // the script's lines that became commands
};

// True for the message that begins a run.
bool begins_run(const LogLine &line);
