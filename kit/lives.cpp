#include "lives.h"

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "account.h"
#include "kit.h"
#include "lib.h"

// --- Comparing -------------------------------------------------------------------------------

namespace {

// How a face differs from the one that was expected.
std::string difference_of(const Face &expected, const Face &found, bool other_content)
{
    if ((expected.mode & S_IFMT) != (found.mode & S_IFMT))
        return "another type";
    std::string text;
    const auto add = [&](bool differs, const std::string &what) {
        if (differs)
            text += (text.empty() ? "" : ", ") + what;
    };
    add(other_content || expected.digest != found.digest || expected.size != found.size, "content");
    add(expected.mode != found.mode,
        "mode " + octal_mode(found.mode) + ", not " + octal_mode(expected.mode));
    add(expected.owner != found.owner || expected.group != found.group, "owner");
    add(expected.target != found.target, "target");
    return text;
}

// What an entry is like in one state and in another. `either` is how it differs from the machine in
// one of them; null: in that state it does not.
Deviation deviation_of(const Difference &either, const Difference *expected,
                       const Difference *found)
{
    const Face &wanted = expected ? expected->after : either.before;
    Face there = found ? found->after : either.before;
    if (there.mode == 0)
        return {"lost", either.path, ""};
    if (wanted.mode == 0)
        return {"left", either.path, ""};
    const bool in_both = expected && found;
    if (!in_both)
        there.digest = wanted.digest; // the machine's own has none
    return {"changed", either.path, difference_of(wanted, there, !in_both && either.other_content)};
}

const Difference *find(const State &state, const std::string &path)
{
    const auto found = state.find(path);
    return found == state.end() ? nullptr : &found->second;
}

std::vector<Deviation> compare(const State &expected, const State &found)
{
    std::vector<Deviation> deviations;
    State paths = expected;
    paths.insert(found.begin(), found.end());
    for (const auto &[path, difference] : paths) {
        const Difference *wanted = find(expected, path);
        const Difference *there = find(found, path);
        if (!wanted || !there || wanted->after != there->after)
            deviations.push_back(deviation_of(difference, wanted, there));
    }
    return deviations;
}

std::string first_line(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

// --- Living ----------------------------------------------------------------------------------

// Does the next run of a trial; false when the life cannot go on, which the verdict then tells.
bool run(Trial &trial, const char *flow, Verdict &verdict)
{
    const int status = trial.next();
    if (status < 0)
        verdict.problem = trial.problem;
    else if (status >= kit_unable)
        verdict.problem = "the " + std::string(flow) + " cannot be judged: " + trial.account();
    else if (status != run_done)
        verdict.deviations.push_back({"failed", flow, first_line(trial.account())});
    return verdict.problem.empty() && verdict.deviations.empty();
}

// The same for a run of which only what it leaves behind counts.
bool run_anyhow(Trial &trial, const char *flow, Verdict &verdict)
{
    if (run(trial, flow, verdict))
        return true;
    verdict.deviations.clear();
    return verdict.problem.empty();
}

bool begin(Trial &trial, Verdict &verdict)
{
    if (!trial.begin())
        verdict.problem = trial.problem;
    return verdict.problem.empty();
}

FlowRun flow_run(const Subject &subject, const char *section)
{
    return {.section = section, .settings = subject.settings};
}

Verdict upgrade_twice(const Subject &subject)
{
    Trial trial(subject);
    trial.plan(flow_run(subject, "install"));
    trial.plan(flow_run(subject, "upgrade"));
    trial.plan(flow_run(subject, "upgrade"));
    Verdict verdict;
    if (!begin(trial, verdict) || !run(trial, "install", verdict) ||
        !run(trial, "upgrade", verdict))
        return verdict;
    const State once = trial.state();
    if (run(trial, "upgrade", verdict))
        verdict.deviations = compare(once, trial.state());
    return verdict;
}

// Adds a line to each settings file, as an administrator would.
int edit_settings(const std::vector<std::string> &files)
{
    return std::ranges::all_of(files,
                               [](const std::string &file) {
                                   return put_text(file, file_text(file) + "# edited\n");
                               })
               ? run_done
               : static_cast<int>(kit_unable);
}

State only(const State &state, const std::vector<std::string> &paths)
{
    State found;
    for (const std::string &path : paths)
        if (const Difference *difference = find(state, path))
            found.emplace(path, *difference);
    return found;
}

Verdict upgrade_edited(const Subject &subject, const std::vector<std::string> &files)
{
    Trial trial(subject);
    trial.plan(flow_run(subject, "install"));
    trial.plan([&] { return edit_settings(files); });
    trial.plan(flow_run(subject, "upgrade"));
    Verdict verdict;
    if (!begin(trial, verdict) || !run(trial, "install", verdict) || !run(trial, "edit", verdict))
        return verdict;
    const State edited = only(trial.state(true), files);
    if (run(trial, "upgrade", verdict))
        verdict.deviations = compare(edited, only(trial.state(true), files));
    return verdict;
}

FlowRun stopped_install(const Subject &subject, unsigned line)
{
    FlowRun install = flow_run(subject, "install");
    install.last_line = line;
    return install;
}

Verdict stop_and_remove(const Subject &subject, unsigned line)
{
    Trial trial(subject);
    trial.plan(stopped_install(subject, line));
    trial.plan(flow_run(subject, "remove"));
    Verdict verdict;
    if (begin(trial, verdict) && run_anyhow(trial, "install", verdict) &&
        run_anyhow(trial, "remove", verdict))
        verdict.deviations = compare({}, trial.state());
    return verdict;
}

Verdict stop_and_repeat(const Subject &subject, unsigned line, const State &installed)
{
    FlowRun again = flow_run(subject, "install");
    again.is_free = true;
    Trial trial(subject);
    trial.plan(stopped_install(subject, line));
    trial.plan(again);
    Verdict verdict;
    if (begin(trial, verdict) && run_anyhow(trial, "install", verdict) &&
        run(trial, "install", verdict))
        verdict.deviations = compare(installed, trial.state());
    return verdict;
}

// A note right in the product's folder is for the installer alone.
bool is_note(const Subject &subject, const Difference *difference)
{
    return difference && S_ISREG(difference->after.mode) &&
           difference->path.starts_with(subject.folder + '/') &&
           difference->path.find('/', subject.folder.size() + 1) == std::string::npos;
}

Verdict install_masked(const Subject &subject, const State &installed)
{
    FlowRun install = flow_run(subject, "install");
    install.mask = 077;
    Trial trial(subject);
    trial.plan(install);
    Verdict verdict;
    if (!begin(trial, verdict) || !run(trial, "install", verdict))
        return verdict;
    const State masked = trial.state();
    for (const Deviation &deviation : compare(installed, masked))
        if (deviation.word != "changed" || !is_note(subject, find(masked, deviation.path)))
            verdict.deviations.push_back(deviation);
    return verdict;
}

// --- Among others' files ---------------------------------------------------------------------

// Makes the directories that the product makes, with a file of somebody else's in each.
int plant(const std::vector<std::string> &directories)
{
    for (const std::string &directory : directories) {
        ::mkdir(directory.c_str(), 0755);
        if (!put_text(directory + "/somebodys.txt", "not the product's\n"))
            return kit_unable;
    }
    return run_done;
}

// Whatever the product does then, nothing of it may go. The install may well refuse.
Verdict live_among_others(const Subject &subject, const std::vector<std::string> &directories,
                          bool installs)
{
    Trial trial(subject);
    trial.plan([&] { return plant(directories); });
    if (installs)
        trial.plan(flow_run(subject, "install"));
    trial.plan(flow_run(subject, "remove"));
    Verdict verdict;
    if (!begin(trial, verdict) || !run(trial, "preparation", verdict))
        return verdict;
    const State planted = trial.state(true);
    if ((!installs || run_anyhow(trial, "install", verdict)) &&
        run_anyhow(trial, "remove", verdict))
        for (const Deviation &deviation : compare(planted, trial.state(true)))
            if (deviation.word == "lost")
                verdict.deviations.push_back(deviation);
    return verdict;
}

// --- Elsewhere, with other answers -----------------------------------------------------------

// A copy of the folder in the view, in a directory whose name wants careful handling.
struct Elsewhere {
    explicit Elsewhere(const Subject &subject)
    {
        const std::string above = subject.folder.substr(0, subject.folder.rfind('/'));
        const bool fits = ::access((above + '/').c_str(), W_OK) == 0;
        top = (fits ? above : "/tmp") + "/Proof.Elsewhere";
        folder = top + subject.folder.substr(above.size());
        other = top + "/Other.Place";
    }

    std::string top;
    std::string folder;
    std::string other; // a directory for those that are answers
};

using Answers = std::map<std::string, std::string>;

int copy_folder(const Subject &subject, const Elsewhere &elsewhere, const Answers &answers)
{
    if (::mkdir(elsewhere.top.c_str(), 0755) != 0 || ::mkdir(elsewhere.other.c_str(), 0755) != 0)
        return kit_unable;
    for (const auto &[setting, answer] : answers)
        if (answer.starts_with(elsewhere.other + '/') && ::mkdir(answer.c_str(), 0755) != 0)
            return kit_unable;
    const pid_t child = ::fork();
    if (child == 0) {
        ::execlp("cp", "cp", "-a", "--", subject.folder.c_str(), elsewhere.folder.c_str(), nullptr);
        ::_exit(127);
    }
    int waited = -1;
    ::waitpid(child, &waited, 0);
    return waited == 0 ? run_done : static_cast<int>(kit_unable);
}

bool has_question(const Subject &subject, const char *section, const std::string &setting)
{
    return std::ranges::any_of(
        entries_of(subject.product.questions, section),
        [&](const Line *line) { return line->question->setting == setting; });
}

std::string value_of(const Subject &subject, const std::string &setting)
{
    for (const Line *line : entries_of(subject.product.data))
        if (line->setting->name == setting)
            return line->setting->value;
    return "";
}

// Another answer than the default, by the type of the question; "": none can be made up.
std::string other_answer(const quest &question, const std::string &standard,
                         const Elsewhere &elsewhere)
{
    if (standard.empty())
        return "";
    switch (question.type) {
    case QDir:
    case QDirEmpty:
        return standard + ".Other";
    case QDirExist:
        return elsewhere.other + '/' + question.setting;
    case QFileName:
        return standard + "2";
    default:
        return "";
    }
}

Answers other_answers(const Subject &subject, const Elsewhere &elsewhere)
{
    Answers answers = subject.settings;
    for (const Line *line : entries_of(subject.product.questions, "install")) {
        if (!line->question->setting)
            continue;
        const std::string setting = line->question->setting;
        const std::string other =
            other_answer(*line->question, value_of(subject, setting), elsewhere);
        if (!other.empty())
            answers.emplace(setting, other);
    }
    return answers;
}

// Later runs know the answers of the install only from what it has noted down.
Answers later_settings(const Subject &subject)
{
    Answers settings;
    for (const auto &[name, value] : subject.settings)
        if (!has_question(subject, "install", name))
            settings.emplace(name, value);
    return settings;
}

Verdict live_elsewhere(const Subject &subject, const Answers &answers, bool upgrades)
{
    const Elsewhere elsewhere(subject);
    Trial trial(subject);
    trial.add_folder(elsewhere.folder);
    trial.plan([&] { return copy_folder(subject, elsewhere, answers); });
    trial.plan({.section = "install", .folder = elsewhere.folder, .settings = answers});
    const auto settings = later_settings(subject);
    if (upgrades)
        trial.plan({.section = "upgrade", .folder = elsewhere.folder, .settings = settings});
    trial.plan({.section = "remove", .folder = elsewhere.folder, .settings = settings});
    Verdict verdict;
    if (!begin(trial, verdict) || !run(trial, "copy", verdict))
        return verdict;
    const State before = trial.state();
    if (run(trial, "install", verdict) && (!upgrades || run(trial, "upgrade", verdict)) &&
        run_anyhow(trial, "remove", verdict))
        verdict.deviations = compare(before, trial.state());
    return verdict;
}

// Not every product takes answers that were made up.
Verdict live_elsewhere(const Subject &subject, bool upgrades)
{
    const Verdict verdict =
        live_elsewhere(subject, other_answers(subject, Elsewhere(subject)), upgrades);
    const bool is_refused = !verdict.deviations.empty() && verdict.deviations[0].word == "failed" &&
                            verdict.deviations[0].path == "install";
    return is_refused ? live_elsewhere(subject, subject.settings, upgrades) : verdict;
}

// --- All of them -----------------------------------------------------------------------------

std::vector<std::string> directories_of(const State &installed)
{
    std::vector<std::string> directories;
    for (const auto &[path, difference] : installed)
        if (difference.change == Change::created && S_ISDIR(difference.after.mode))
            directories.push_back(path);
    return directories;
}

std::vector<std::string> settings_files(const State &installed)
{
    std::vector<std::string> files;
    for (const auto &[path, difference] : installed)
        if (difference.change == Change::created && S_ISREG(difference.after.mode) &&
            has_settings_ending(path))
            files.push_back(path);
    return files;
}

} // namespace

bool live_first(const Subject &subject, FirstLife &first, std::string &problem)
{
    Trial trial(subject);
    trial.plan(flow_run(subject, "install"));
    trial.plan(flow_run(subject, "remove"));
    if (!trial.begin()) {
        problem = trial.problem;
        return false;
    }
    const int installed = trial.next();
    if (installed == run_done) {
        first.installed = trial.state();
        const State all = trial.state(true);
        first.settings_files = settings_files(all);
        first.directories = directories_of(all);
        const int removed = trial.next();
        first.removed.deviations = compare({}, trial.state());
        if (removed >= 0 && removed != run_nothing && removed < kit_unable)
            return true;
        problem = "the removal does nothing when nobody answers (where a default says no, "
                  "'--set NAME=VALUE' gives another): ";
    } else {
        problem = "the install does not succeed when nobody answers: ";
    }
    problem += trial.problem.empty() ? trial.account() : trial.problem;
    return false;
}

std::vector<Life> other_lives(const Subject &subject, const FirstLife &first)
{
    std::vector<Life> lives;
    if (find_section(subject.product.copy, "upgrade")) {
        lives.push_back(
            {"install, upgrade, upgrade again", "", [&] { return upgrade_twice(subject); }});
        if (!first.settings_files.empty())
            lives.push_back({"install, settings edited, upgrade", "",
                             [&] { return upgrade_edited(subject, first.settings_files); }});
    }
    for (const bool repeats : {false, true})
        for (const Line *line : entries_of(subject.product.copy, "install"))
            lives.push_back(
                {repeats ? "install stopped %s, install again" : "install stopped %s, remove",
                 place_of(subject.product.copy, *line), [&, repeats, number = line->number] {
                     return repeats ? stop_and_repeat(subject, number, first.installed)
                                    : stop_and_remove(subject, number);
                 }});
    lives.push_back(
        {"install under umask 077", "", [&] { return install_masked(subject, first.installed); }});
    lives.push_back({"among others' files: remove", "",
                     [&] { return live_among_others(subject, first.directories, false); }});
    lives.push_back({"among others' files: install, remove", "",
                     [&] { return live_among_others(subject, first.directories, true); }});
    lives.push_back({"elsewhere with other answers: install, remove", "",
                     [&] { return live_elsewhere(subject, false); }});
    if (find_section(subject.product.copy, "upgrade"))
        lives.push_back({"elsewhere with other answers: install, upgrade, remove", "",
                         [&] { return live_elsewhere(subject, true); }});
    return lives;
}
