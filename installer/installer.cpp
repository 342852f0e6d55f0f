#include "installer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "copy.h"
#include "file.h"
#include "ini.h"
#include "init.h"
#include "lib.h"
#include "log.h"
#include "quest.h"
#include "shared.h"

char *myname = nullptr;
char *special_mode = nullptr;
int automate = 0;

namespace {

// The path of one of the run's own files: the program's name in the working directory. Where the
// whole path would be cut, and so name something else, the name alone leads there as well.
void product_file(char (&path)[path_size], const char *extension)
{
    char name[path_size] = "";
    attach_path(name, myname);
    attach_ext(name, extension);
    char directory[path_size] = "";
    currentdir(directory, path_size);
    if (!join_path(path, directory, name))
        scpy(path, name);
}

} // namespace

// --- The command line ------------------------------------------------------------------------

namespace {

// What is left of the command line; options take from it what belongs to them.
struct CommandLine {
    char **arguments;
    int left;

    const char *next() { return left-- > 0 ? *arguments++ : nullptr; }
};

struct option {
    const char *word;
    void (*take)(Log *log, CommandLine &line);
};

void take_debug(Log *log, CommandLine &)
{
    log_set_level(log, LogDebug);
    imsg("Logging set to debug");
}

void take_version(Log *, CommandLine &)
{
    say("Installer version %s\n", "1.0d");
    std::exit(EXIT_SUCCESS);
}

void take_automate(Log *, CommandLine &)
{
    imsg("Automated install/upgrade...");
    automate = 1;
}

void take_special(Log *, CommandLine &line)
{
    const char *tag = line.next();
    if (!tag) {
        say("Usage: install -special <tag>\n");
        std::exit(EXIT_FAILURE);
    }
    s_assign(&special_mode, tag);
    imsg("Special mode [%s]", special_mode);
}

constexpr option options[] = {
    {"-debug", take_debug},
    {"-version", take_version},
    {"-automate", take_automate},
    {"-special", take_special},
};

} // namespace

void process_args(Log *log, char **argv, int argc)
{
    if (!argv)
        return;
    CommandLine line = {.arguments = argv + 1, .left = argc - 1};
    while (const char *argument = line.next())
        if (const option *known = find_word(options, argument, s_strcmp))
            known->take(log, line);
}

// --- Screens ---------------------------------------------------------------------------------

namespace {

const char *product_name(const Ini *ini)
{
    const char *name = ini_value_name(ini, "product");
    return name ? name : "NONAME";
}

} // namespace

void print_header(const Ini *ini)
{
    const char *rule = "======================================================\n";
    say("%s", rule);
    say("             Welcome to the %s installer\n", product_name(ini));
    say(" You will be asked a series of questions, for each a\n");
    say(" default answer will be provided (thus), to accept the\n");
    say(" default simply press <enter>, otherwise enter a new\n");
    say(" answer and press <enter>\n");
    say("%s", rule);
}

void print_menu(const Ini *ini)
{
    const char *name = product_name(ini);
    say("\n");
    say("1. Install %s\n", name);
    say("2. Upgrade %s\n", name);
    say("3. Remove %s\n", name);
    say("4. Exit\n");
}

void print_blurb(const Ini *ini)
{
    LineReader reader("blurb.txt");
    if (!reader.is_open())
        return;
    say("\n");
    while (const char *line = reader.next()) {
        char text[line_size];
        ini_replace(ini, line, text, line_size);
        say("%s\n", text);
    }
}

// --- Asking a section's questions ------------------------------------------------------------

namespace {

// What tells one flow from another.
struct flow {
    const char *title;   // shown first; may show the section
    const char *section; // of the question file and of the copy script
    const char *heading; // shown before the dots of the copy script
    const char *success; // shown with the counts
    bool counts_bytes;   // and not only files
    bool stop_on_fail;
    bool expands_errors; // fills in the references of an Error step's text
};

// One walk over a section's questions.
struct Dialogue {
    const flow &kind;
    Ini *ini;
    pQuestions set;
    int index;             // of the question that comes next
    char reply[line_size]; // kept from question to question
    int steps_back;        // since a question was last put to a person
};

// Goes on, or ends the flow with a result.
using Step = std::optional<flow_result>;
constexpr std::nullopt_t go_on = std::nullopt;

Step step_copy(Dialogue &dialogue)
{
    const char *source = quest_text(dialogue.set, static_cast<unsigned>(dialogue.index));
    const char *target = quest_setting(dialogue.set, static_cast<unsigned>(dialogue.index));
    ini_add_name(dialogue.ini, target, ini_value_name(dialogue.ini, source));
    dialogue.index++;
    return go_on;
}

Step step_exist(Dialogue &dialogue)
{
    const auto index = static_cast<unsigned>(dialogue.index++);
    char path[line_size] = "";
    ini_replace(dialogue.ini, quest_text(dialogue.set, index), path, line_size);
    ini_add_name(dialogue.ini, quest_setting(dialogue.set, index),
                 file_exist(path) ? "true" : "false");
    return go_on;
}

bool is_refused(const Dialogue &dialogue, unsigned index)
{
    return isfalse(ini_value_name(dialogue.ini, quest_setting(dialogue.set, index)));
}

Step step_error(Dialogue &dialogue)
{
    const auto index = static_cast<unsigned>(dialogue.index++);
    if (!is_refused(dialogue, index))
        return go_on;
    char text[line_size];
    scpy(text, quest_text(dialogue.set, index));
    if (dialogue.kind.expands_errors)
        ini_replace(dialogue.ini, quest_text(dialogue.set, index), text, line_size);
    say("Error: %s\n", text);
    return flow_failed;
}

Step step_loop(Dialogue &dialogue)
{
    const auto index = static_cast<unsigned>(dialogue.index++);
    if (is_refused(dialogue, index))
        dialogue.index = std::max(0, s_atoi(quest_text(dialogue.set, index)));
    return go_on;
}

// Whether the controlling setting lets a question be asked. Unlike in the copy script, texts are
// compared here with regard to case.
bool is_asked(const Dialogue &dialogue, unsigned index)
{
    const char *control = ini_value_name(dialogue.ini, quest_control(dialogue.set, index));
    if (!control)
        return true;
    const char *compare_name = quest_control_cmp(dialogue.set, index);
    const char *compare = compare_name ? ini_value_or_text(dialogue.ini, compare_name) : nullptr;
    return compare ? s_strcmp(control, compare) == 0 : istrue(control);
}

// The same question comes again, unless nobody is there to answer it.
Step reject_answer()
{
    say("Error: %s, please try again\n", quest_error());
    if (automate || input_ended())
        return flow_failed;
    return go_on;
}

// Gets an answer into the reply; false when there is none that could be judged.
bool get_answer(Dialogue &dialogue, unsigned index)
{
    if (automate) {
        quest_default(dialogue.set, index, dialogue.reply, line_size);
        return true;
    }
    const int answered = quest_ask(dialogue.set, index, dialogue.reply, line_size);
    if (!input_ended())
        dialogue.steps_back = 0;
    return answered != 0;
}

Step step_back(Dialogue &dialogue)
{
    if (input_ended())
        return flow_failed;
    dialogue.index = std::max(0, dialogue.index - 1);
    return go_on;
}

Step step_question(Dialogue &dialogue)
{
    const auto index = static_cast<unsigned>(dialogue.index);
    if (!is_asked(dialogue, index)) {
        dialogue.index++;
        return go_on;
    }
    if (!get_answer(dialogue, index))
        return reject_answer();
    if (s_stricmp(dialogue.reply, "q") == 0)
        return flow_menu;
    if (s_stricmp(dialogue.reply, "b") == 0)
        return step_back(dialogue);
    if (!quest_answer(dialogue.set, index, dialogue.reply))
        return reject_answer();
    dialogue.index++;
    return go_on;
}

struct automatic_step {
    QType type;
    Step (*run)(Dialogue &dialogue);
};

constexpr automatic_step automatic_steps[] = {
    {QCopy, step_copy},
    {QXExist, step_exist},
    {QError, step_error},
    {QLoop, step_loop},
};

Step take_step(Dialogue &dialogue)
{
    const QType type = quest_type(dialogue.set, static_cast<unsigned>(dialogue.index));
    for (const automatic_step &step : automatic_steps)
        if (step.type == type)
            return step.run(dialogue);
    return step_question(dialogue);
}

flow_result ask_all(Dialogue &dialogue)
{
    constexpr int steps_back_most = 1000;
    const auto count = static_cast<int>(quest_count(dialogue.set));
    dialogue.index = 0;
    dialogue.steps_back = 0;
    while (dialogue.index < count) {
        const int before = dialogue.index;
        if (const Step ended = take_step(dialogue))
            return *ended;
        if (dialogue.index <= before && ++dialogue.steps_back > steps_back_most) {
            emsg("More than %d steps back without a question, section '%s' given up",
                 steps_back_most, dialogue.kind.section);
            return flow_failed;
        }
    }
    return flow_ended;
}

bool wants_changes(Dialogue &dialogue)
{
    if (automate)
        return false;
    say("Do you want to change your answers [n]? ");
    return read_input(dialogue.reply, line_size) && istrue(s_strtrm(dialogue.reply));
}

flow_result ask_section(const flow &kind, Ini *ini, const char *path)
{
    const Owned<questions, quest_free> set(quest_init(ini));
    say(kind.title, kind.section);
    if (!quest_load(set.get(), path, kind.section)) {
        emsg("Error loading questions");
        return flow_failed;
    }
    Dialogue dialogue = {
        .kind = kind, .ini = ini, .set = set.get(), .index = 0, .reply = "", .steps_back = 0};
    flow_result result = flow_ended;
    do
        result = ask_all(dialogue);
    while (result == flow_ended && wants_changes(dialogue));
    return result;
}

// --- Running a section's copy script ---------------------------------------------------------

void printdot(char *, char *, int)
{
    std::fputc('.', stdout);
    std::fflush(stdout);
}

void printerror(char *, char *, int)
{
    say("\nError: %s\n", std::strerror(errno));
}

void run_script(const flow &kind, Ini *ini, const char *path)
{
    const Owned<copy, copy_free> script(copy_init(ini));
    copy_setup(script.get(), printdot, printerror);
    if (!copy_load(script.get(), path, kind.section))
        return;
    say("%s", kind.heading);
    unsigned long files = 0;
    unsigned long bytes = 0;
    unsigned long *counted_bytes = kind.counts_bytes ? &bytes : nullptr;
    if (!copy_process(script.get(), &files, counted_bytes, kind.stop_on_fail))
        say("]\nFailed, %s", copy_error());
    else if (kind.counts_bytes)
        say(kind.success, static_cast<int>(bytes), static_cast<int>(files));
    else
        say(kind.success, static_cast<int>(files));
}

flow_result run_flow(const flow &kind, Ini *ini)
{
    char path[path_size];
    product_file(path, ".q");
    const flow_result result = ask_section(kind, ini, path);
    if (result == flow_ended) {
        product_file(path, ".cpy");
        run_script(kind, ini, path);
    }
    return result;
}

constexpr flow install_flow = {
    .title = "[Install]\n",
    .section = "install",
    .heading = "Copying files[",
    .success = "]\nSuccess %d bytes in %d files copied\n",
    .counts_bytes = true,
    .stop_on_fail = true,
    .expands_errors = false,
};

constexpr flow upgrade_flow = {
    .title = "[Upgrade]\n",
    .section = "upgrade",
    .heading = "Copying files[",
    .success = "]\nSuccess %d bytes in %d files copied\n",
    .counts_bytes = true,
    .stop_on_fail = true,
    .expands_errors = true,
};

constexpr flow remove_flow = {
    .title = "[Remove]\n",
    .section = "remove",
    .heading = "Removing files[",
    .success = "]\n Success %d files removed\n",
    .counts_bytes = false,
    .stop_on_fail = false,
    .expands_errors = false,
};

// Its section is the tag of the command line.
constexpr flow special_flow = {
    .title = "[%s]\n",
    .section = nullptr,
    .heading = "Executing[",
    .success = "]\n Success %d files done.\n",
    .counts_bytes = false,
    .stop_on_fail = false,
    .expands_errors = false,
};

} // namespace

int install_product(Ini *ini)
{
    return run_flow(install_flow, ini);
}

int upgrade_product(Ini *ini)
{
    return run_flow(upgrade_flow, ini);
}

int remove_product(Ini *ini)
{
    return run_flow(remove_flow, ini);
}

int do_special(Ini *ini)
{
    flow kind = special_flow;
    kind.section = special_mode;
    return run_flow(kind, ini);
}

// --- The menu --------------------------------------------------------------------------------

namespace {

// Gets the entry to run; false at the end of input.
bool choose(int standard, int &choice)
{
    choice = standard;
    if (automate) {
        say("\n");
        return true;
    }
    say("\nWhat would you like to do[%d]? ", standard);
    char reply[line_size];
    if (!read_input(reply, line_size))
        return false;
    const char *answer = s_strtrm(reply);
    if (*answer)
        choice = s_atoi(answer);
    return true;
}

// Nobody is there to choose again when a flow goes back to the menu of an unattended run.
bool is_final(int result)
{
    return automate || result != flow_menu;
}

// Runs a menu entry; true when the run is over.
bool run_choice(int choice, Ini *ini)
{
    switch (choice) {
    case 1: {
        const int result = install_product(ini);
        if (result != flow_menu)
            print_blurb(ini);
        return is_final(result);
    }
    case 2:
        return is_final(upgrade_product(ini));
    case 3:
        return is_final(remove_product(ini));
    case 4:
        return true;
    case 5:
        do_special(ini);
        return true;
    default:
        say("That is not a recognised option, please try again\n");
        return false;
    }
}

void run_menu(Ini *ini)
{
    constexpr int special_choice = 5;
    const int standard = s_strcmp(ini_value_name(ini, "action"), "upgrade") == 0 ? 2 : 1;
    print_header(ini);
    bool finished = false;
    while (!finished) {
        int choice = special_choice;
        if (!special_mode) {
            print_menu(ini);
            if (!choose(standard, choice))
                return;
        }
        finished = run_choice(choice, ini);
    }
}

// --- The run ---------------------------------------------------------------------------------

void start_log(Log *log)
{
    char path[path_size];
    product_file(path, ".log");
    log_set(log);
    log_open(log, path);
    log_doflush(log, 1);
    imsg("Log file opened in '%s'", path);
}

bool load_settings(Ini *ini)
{
    char path[path_size];
    product_file(path, ".dat");
    return load_datfile(ini, path) != 0;
}

bool probe_host(Ini *ini)
{
    const Owned<init, init_free> script(init_init());
    char path[path_size];
    product_file(path, ".int");
    if (!init_load(script.get(), path)) {
        emsg("%s", init_error());
        say("Error: Failed to load init file '%s', %s\n", path, init_error());
        return false;
    }
    init_run(script.get(), ini);
    return true;
}

void run(int argc, char **argv)
{
    const Owned<Log, log_free> log(log_init(LogDebug));
    const Owned<Ini, ini_free> ini(ini_init());
    char name[path_size];
    myname = s_strdup(exename(name, argc > 0 ? argv[0] : nullptr, path_size));
    start_log(log.get());
    process_args(log.get(), argv, argc);
    if (load_settings(ini.get()) && probe_host(ini.get()))
        run_menu(ini.get());
    clear_datfile();
    text_free(&myname);
}

} // namespace

int main(int argc, char **argv)
{
    run(argc, argv);
    if (!automate) {
        say("\n<Press enter to exit>");
        char reply[line_size];
        static_cast<void>(read_input(reply, line_size));
    }
    return EXIT_SUCCESS;
}
