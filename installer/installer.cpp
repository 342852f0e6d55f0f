#include "installer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

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
// whole path would be cut, and so name something else, the name alone leads there as well. A name
// that would itself be cut is that of another file, or of the program: false.
bool product_file(char (&path)[path_size], const char *extension)
{
    char name[path_size] = "";
    attach_path(name, myname);
    const size_t whole = std::strlen(name) + std::strlen(extension);
    attach_ext(name, extension);
    char directory[path_size] = "";
    currentdir(directory, path_size);
    if (!join_path(path, directory, name))
        scpy(path, name);
    return whole < path_size;
}

// True when nobody will answer (any more).
bool nobody_is_there()
{
    return automate || input_ended();
}

Input read_reply(char (&reply)[line_size])
{
    const Input input = read_input(reply, line_size);
    if (input == Input::error)
        emsg("Error reading what was typed, %s", std::strerror(errno));
    return input;
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

// --- Asking a section's questions ------------------------------------------------------------

namespace {

// One walk over a section's questions.
struct Dialogue {
    const flow &kind;
    Ini *ini;
    pQuestions set;
    unsigned next;         // the question that comes next
    char reply[line_size]; // kept from question to question
    int steps_back;        // since a question was last put to a person
};

// Goes on, or ends the flow with a result.
using Step = std::optional<flow_result>;
constexpr std::nullopt_t go_on = std::nullopt;

Step step_copy(Dialogue &dialogue, unsigned index)
{
    ini_add_name(dialogue.ini, quest_setting(dialogue.set, index),
                 ini_value_name(dialogue.ini, quest_text(dialogue.set, index)));
    return go_on;
}

Step step_exist(Dialogue &dialogue, unsigned index)
{
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

Step step_error(Dialogue &dialogue, unsigned index)
{
    if (!is_refused(dialogue, index))
        return go_on;
    char text[line_size];
    scpy(text, quest_text(dialogue.set, index));
    if (dialogue.kind.expands_errors)
        ini_replace(dialogue.ini, quest_text(dialogue.set, index), text, line_size);
    say("Error: %s\n", text);
    return flow_failed;
}

Step step_loop(Dialogue &dialogue, unsigned index)
{
    if (is_refused(dialogue, index))
        dialogue.next = static_cast<unsigned>(std::max(0, s_atoi(quest_text(dialogue.set, index))));
    return go_on;
}

// The same question comes again, unless nobody is there to answer it.
Step reject_answer(Dialogue &dialogue, unsigned index)
{
    say("Error: %s, please try again\n", quest_error());
    dialogue.next = index;
    return nobody_is_there() ? Step(flow_failed) : go_on;
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

Step step_back(Dialogue &dialogue, unsigned index)
{
    if (input_ended())
        return flow_failed;
    dialogue.next = index > 0 ? index - 1 : 0;
    return go_on;
}

Step step_question(Dialogue &dialogue, unsigned index)
{
    if (!quest_is_asked(dialogue.set, index))
        return go_on;
    if (!get_answer(dialogue, index))
        return reject_answer(dialogue, index);
    if (s_stricmp(dialogue.reply, "q") == 0)
        return flow_menu;
    if (s_stricmp(dialogue.reply, "b") == 0)
        return step_back(dialogue, index);
    if (!quest_answer(dialogue.set, index, dialogue.reply))
        return reject_answer(dialogue, index);
    return go_on;
}

struct automatic_step {
    QType type;
    Step (*run)(Dialogue &dialogue, unsigned index);
};

constexpr automatic_step automatic_steps[] = {
    {QCopy, step_copy},
    {QXExist, step_exist},
    {QError, step_error},
    {QLoop, step_loop},
};

// The step after it is the next question, unless it decides otherwise.
Step take_step(Dialogue &dialogue)
{
    const unsigned index = dialogue.next++;
    const QType type = quest_type(dialogue.set, index);
    for (const automatic_step &step : automatic_steps)
        if (step.type == type)
            return step.run(dialogue, index);
    return step_question(dialogue, index);
}

flow_result ask_all(Dialogue &dialogue)
{
    constexpr int steps_back_most = 1000;
    dialogue.next = 0;
    dialogue.steps_back = 0;
    while (dialogue.next < quest_count(dialogue.set)) {
        const unsigned before = dialogue.next;
        if (const Step ended = take_step(dialogue))
            return *ended;
        if (dialogue.next <= before && ++dialogue.steps_back > steps_back_most) {
            emsg("More than %d steps back without a question, section '%s' given up",
                 steps_back_most, dialogue.set->section);
            return flow_failed;
        }
    }
    return flow_ended;
}

// Goes on when the answers are to be gone through again. A line that the end of input has cut off
// is no answer.
Step review(Dialogue &dialogue)
{
    if (automate)
        return flow_ended;
    say("Do you want to change your answers [n]? ");
    if (read_reply(dialogue.reply) == Input::error)
        return flow_failed;
    if (nobody_is_there() || !istrue(s_strtrm(dialogue.reply)))
        return flow_ended;
    return go_on;
}

flow_result ask_section(const flow &kind, const char *section, Ini *ini, const char *path)
{
    const Owned<questions, quest_free> set(quest_init(ini));
    say("[%s]\n", kind.title ? kind.title : section);
    if (!quest_load(set.get(), path, section)) {
        emsg("Error loading questions");
        return flow_failed;
    }
    Dialogue dialogue = {
        .kind = kind, .ini = ini, .set = set.get(), .next = 0, .reply = "", .steps_back = 0};
    Step ended = go_on;
    while (!ended) {
        ended = ask_all(dialogue);
        if (ended == flow_ended)
            ended = review(dialogue);
    }
    return *ended;
}

} // namespace

// --- Running a section's copy script ---------------------------------------------------------

void printdot(char *, char *, int)
{
    say(".");
}

void printerror(char *, char *, int)
{
    say("\nError: %s\n", std::strerror(errno));
}

namespace {

void run_script(const flow &kind, const char *section, Ini *ini, const char *path)
{
    const Owned<copy, copy_free> script(copy_init(ini));
    copy_setup(script.get(), printdot, printerror);
    if (!copy_load(script.get(), path, section))
        return;
    say("%s[", kind.heading);
    unsigned long files = 0;
    unsigned long bytes = 0;
    unsigned long *counted_bytes = kind.counts_bytes ? &bytes : nullptr;
    if (copy_process(script.get(), &files, counted_bytes, kind.stops_on_fail))
        kind.tell_success(static_cast<int>(files), static_cast<int>(bytes));
    else
        say("]\nFailed, %s", copy_error());
}

// --- The flows -------------------------------------------------------------------------------

flow_result run_flow(const flow &kind, Ini *ini)
{
    const char *section = kind.section ? kind.section : special_mode;
    char path[path_size];
    if (!product_file(path, ".q"))
        return flow_failed;
    const flow_result result = ask_section(kind, section, ini, path);
    if (result == flow_ended && product_file(path, ".cpy"))
        run_script(kind, section, ini, path);
    return result;
}

void tell_copied(int files, int bytes)
{
    say("]\nSuccess %d bytes in %d files copied\n", bytes, files);
}

void tell_removed(int files, int)
{
    say("]\n Success %d files removed\n", files);
}

void tell_done(int files, int)
{
    say("]\n Success %d files done.\n", files);
}

} // namespace

constexpr flow flows[4] = {
    {.title = "Install",
     .section = "install",
     .heading = "Copying files",
     .tell_success = tell_copied,
     .counts_bytes = true,
     .stops_on_fail = true,
     .expands_errors = false},
    {.title = "Upgrade",
     .section = "upgrade",
     .heading = "Copying files",
     .tell_success = tell_copied,
     .counts_bytes = true,
     .stops_on_fail = true,
     .expands_errors = true},
    {.title = "Remove",
     .section = "remove",
     .heading = "Removing files",
     .tell_success = tell_removed,
     .counts_bytes = false,
     .stops_on_fail = false,
     .expands_errors = false},
    {.title = nullptr,
     .section = nullptr,
     .heading = "Executing",
     .tell_success = tell_done,
     .counts_bytes = false,
     .stops_on_fail = false,
     .expands_errors = false},
};

int install_product(Ini *ini)
{
    return run_flow(flows[0], ini);
}

int upgrade_product(Ini *ini)
{
    return run_flow(flows[1], ini);
}

int remove_product(Ini *ini)
{
    return run_flow(flows[2], ini);
}

int do_special(Ini *ini)
{
    return run_flow(flows[3], ini);
}

// --- Screens ---------------------------------------------------------------------------------

namespace {

const char *product_name(Ini *ini)
{
    const char *name = ini_value_name(ini, "product");
    return name ? name : "NONAME";
}

enum menu_choice : int {
    choose_install = 1,
    choose_upgrade,
    choose_remove,
    choose_exit,
    choose_special,
};

// What can be chosen.
struct menu_entry {
    const char *word;     // null: not shown, as it is meant for -special
    int (*run)(Ini *ini); // null: the run is over
    menu_choice choice;
    bool leads_back; // to the menu, when the flow is left with "q"
    bool ends_with_blurb;
};

constexpr menu_entry menu_entries[] = {
    {flows[0].title, install_product, choose_install, true, true},
    {flows[1].title, upgrade_product, choose_upgrade, true, false},
    {flows[2].title, remove_product, choose_remove, true, false},
    {"Exit", nullptr, choose_exit, false, false},
    {nullptr, do_special, choose_special, false, false},
};

} // namespace

void print_header(Ini *ini)
{
    const char *rule = "======================================================";
    say("%s\n"
        "             Welcome to the %s installer\n"
        " You will be asked a series of questions, for each a\n"
        " default answer will be provided (thus), to accept the\n"
        " default simply press <enter>, otherwise enter a new\n"
        " answer and press <enter>\n"
        "%s\n",
        rule, product_name(ini), rule);
}

void print_menu(Ini *ini)
{
    say("\n");
    for (const menu_entry &entry : menu_entries)
        if (entry.word && entry.run)
            say("%d. %s %s\n", entry.choice, entry.word, product_name(ini));
        else if (entry.word)
            say("%d. %s\n", entry.choice, entry.word);
}

void print_blurb(Ini *ini)
{
    LineReader reader("blurb.txt");
    if (!ini || !reader.is_open())
        return;
    say("\n");
    while (const char *line = reader.next()) {
        char text[line_size];
        ini_replace(ini, line, text, line_size);
        say("%s\n", text);
    }
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
    if (read_reply(reply) != Input::line)
        return false;
    const char *answer = s_strtrm(reply);
    if (*answer)
        choice = s_atoi(answer);
    return true;
}

const menu_entry *entry_of(int choice)
{
    const auto chosen = [choice](const menu_entry &entry) { return entry.choice == choice; };
    const auto *entry = std::find_if(std::begin(menu_entries), std::end(menu_entries), chosen);
    return entry == std::end(menu_entries) ? nullptr : entry;
}

// Runs a menu entry; true when the run is over.
bool run_choice(int choice, Ini *ini)
{
    const menu_entry *entry = entry_of(choice);
    if (!entry) {
        say("That is not a recognised option, please try again\n");
        return false;
    }
    const int result = entry->run ? entry->run(ini) : flow_ended;
    // Nobody is there to choose again in an unattended run.
    if (result == flow_menu && entry->leads_back)
        return automate;
    if (entry->ends_with_blurb)
        print_blurb(ini);
    return true;
}

void run_menu(Ini *ini)
{
    const bool upgrades = s_strcmp(ini_value_name(ini, "action"), "upgrade") == 0;
    const menu_choice standard = upgrades ? choose_upgrade : choose_install;
    print_header(ini);
    bool finished = false;
    while (!finished) {
        int choice = choose_special;
        if (!special_mode) {
            print_menu(ini);
            if (!choose(standard, choice))
                return;
        }
        finished = run_choice(choice, ini);
    }
}

// --- The run ---------------------------------------------------------------------------------

// A file that is opened in the place of a standard stream would be taken for the screen.
void open_standard_streams()
{
    int descriptor = ::open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = ::open("/dev/null", O_RDWR);
    ::close(descriptor);
}

void start_log(Log *log)
{
    char path[path_size];
    log_set(log);
    if (!product_file(path, ".log"))
        return;
    log_open(log, path);
    log_doflush(log, 1);
    imsg("Log file opened in '%s'", path);
}

bool load_settings(Ini *ini)
{
    char path[path_size];
    return product_file(path, ".dat") && load_datfile(ini, path) != 0;
}

bool probe_host(Ini *ini)
{
    const Owned<init, init_free> script(init_init());
    char path[path_size];
    if (!product_file(path, ".int"))
        return false;
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

int run_installer(int argc, char **argv)
{
    open_standard_streams();
    std::set_new_handler(out_of_memory);
    // Whoever reads the screen or the log may leave; the work goes on.
    std::signal(SIGPIPE, SIG_IGN);
    run(argc, argv);
    if (!automate) {
        say("\n<Press enter to exit>");
        char reply[line_size];
        static_cast<void>(read_input(reply, line_size));
    }
    return EXIT_SUCCESS;
}
