// The copy script against the folder: what its commands find, where they put it, and what they
// leave.
#include "rules.h"

#include <algorithm>
#include <cstring>

#include "file.h"
#include "lib.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

namespace {

// --- Fields ----------------------------------------------------------------------------------

bool is_copy(const copy_cmd &command)
{
    return command.type == CpyFile || command.type == CpyDir;
}

bool is_removal(const copy_cmd &command)
{
    return command.type == RmFile || command.type == RmDir;
}

std::string source_of(const CommandAt &at)
{
    return at.survey.flow.path(text_of(at.command.source));
}

std::string dest_of(const CommandAt &at)
{
    return at.survey.flow.path(text_of(at.command.dest));
}

void say(const CommandAt &at, Report &report, const std::string &text)
{
    report.add(at.survey.product.copy, at.line, text);
}

// What is left out by a command; null: nothing.
const char *left_out(const copy_cmd &command)
{
    return s_strcmp(command.not_, "-") == 0 ? nullptr : command.not_;
}

// --- Destinations ----------------------------------------------------------------------------

bool takes_path(const copy_cmd &command)
{
    return is_copy(command) || command.type == CpyIni || command.type == Rename;
}

void destination_slash(const CommandAt &at, Report &report)
{
    const std::string dest = dest_of(at);
    if (is_copy(at.command) && !dest.empty() && is_separator(dest.back()))
        say(at, report, "destination ends in \"/\", so no directory is ever found");
}

void destination_bare(const CommandAt &at, Report &report)
{
    const std::string field = text_of(at.command.dest);
    if (!is_copy(at.command) || field.find_first_of("/\\") != std::string::npos || field == "-")
        return;
    const std::string name = only_reference(field);
    const Value &value = at.survey.flow.at_load(at.line, name);
    const bool is_fixed = name.empty() || (value.is_known() && !at.view.asks_for(name));
    const std::string *path = name.empty() ? &field : value.only_text();
    if (is_fixed && path && path->find("$(") == std::string::npos &&
        path->find('/') == std::string::npos)
        say(at, report,
            "destination has no \"/\", so no directory is ever found; \"./" + *path + "\"?");
}

// "-" where a file belongs.
void dash_as_path(const CommandAt &at, Report &report)
{
    if (at.command.type == Error)
        return;
    if (text_of(at.command.source) == "-")
        say(at, report, "\"-\" stands where a path belongs, and is taken for the name of a file");
    else if (takes_path(at.command) && text_of(at.command.dest) == "-")
        say(at, report, "\"-\" stands where the destination belongs, and is taken for its name");
}

// --- What is left out ------------------------------------------------------------------------

void exclusion_path(const CommandAt &at, Report &report)
{
    const char *list = left_out(at.command);
    if (list && (is_copy(at.command) || is_removal(at.command)) && std::strchr(list, '/') &&
        !std::strstr(list, "$("))
        say(at, report,
            in_quotes(list) +
                " is compared with bare names, and no name has a \"/\": nothing is left out");
}

// Names with blanks or commas are compared piece by piece.
void exclusion_pieces(const CommandAt &at, Report &report)
{
    const char *list = left_out(at.command);
    const std::string source = source_of(at);
    if (!list || !is_copy(at.command) || !is_in_folder(source))
        return;
    for (const FolderEntry &entry : at.survey.folder.matches(source)) {
        if (entry.name.find_first_of(" \t,") == std::string::npos ||
            !wild_ilist(entry.name.c_str(), list))
            continue;
        std::string whole = entry.name;
        std::replace_if(
            whole.begin(), whole.end(), [](char c) { return c == ' ' || c == '\t' || c == ','; },
            '_');
        if (!wild_ilist(whole.c_str(), list))
            say(at, report,
                "\"" + entry.name +
                    "\" is compared piece by piece at its blanks and commas, and one "
                    "of them is left out");
    }
}

// --- Sources ---------------------------------------------------------------------------------

// The path that a misspelt one is probably meant for: another name in its directory, or another
// directory of its kind.
std::string path_meant(const CommandAt &at, const std::string &path)
{
    const SplitPath split = split_path(path);
    NearestWord nearest(path);
    nearest.look_among(at.survey.disks.paths(), [&](const std::string &one) {
        const bool is_beside = lies_in(one, split.directory);
        if (one == path || (!is_beside && has_wildcard(path)) || !at.disk.made().contains(one))
            return NearestWord::not_meant;
        return is_beside ? 0 : 1;
    });
    const auto is_other = [&](const std::string &one) {
        return one == path ? NearestWord::not_meant : 0;
    };
    if (is_in_folder(path)) {
        nearest.look_among(at.survey.folder.paths(split.directory), is_other);
        if (!split.directory.empty())
            nearest.look_among(at.survey.folder.paths(""), is_other, "/" + split.name);
    }
    return nearest.best();
}

// A directory that this product makes, only not before this command.
bool is_made_too_late(const CommandAt &at, const std::string &directory)
{
    const std::string section = folded(at.section);
    return (section == "install" || section == "upgrade") && !directory.empty() &&
           !at.disk.makes_at(directory) && !has_wildcard(directory) &&
           at.survey.disks.makes_directory(directory);
}

// Commands that must find something there.
bool needs_source_there(const CommandAt &at)
{
    const CType type = at.command.type;
    return is_copy(at.command) || type == CpyIni || type == Rename || type == Chmod ||
           type == Chown;
}

const char *fate_without_source(const CommandAt &at)
{
    const std::string section = folded(at.section);
    return section == "install" || section == "upgrade" ? ": the command fails, and ends the flow"
                                                        : ": the command does nothing";
}

void no_match(const CommandAt &at, Report &report)
{
    const std::string path = without_slash(source_of(at));
    if (!needs_source_there(at) || path == "-" || at.command.not_ == nullptr)
        if (at.command.type != CpyIni && at.command.type != Rename)
            return;
    if (path.empty() || path == "-" || (at.disk.may_have(path) && !is_made_too_late(at, path)))
        return;
    const std::string near = path_meant(at, path);
    // A directory of the product may hold what the product itself has written since, but not while
    // it is being installed.
    const bool is_certain = folded(at.section) == "install" || is_in_folder(path);
    if (!is_certain && near.empty())
        return;
    say(at, report,
        (is_in_folder(path) ? in_quotes(path) + " matches nothing in the folder"
                            : in_quotes(path) + " is made by no command before") +
            fate_without_source(at) + meant(near));
}

bool is_rooted(const std::string &path)
{
    return path.empty() || is_separator(path[0]) || path.starts_with("..");
}

// A directory that a person names and that need not be there: nothing makes it before this command.
bool is_unmade_answer(const CommandAt &at, const std::string &name)
{
    const Setting *setting = at.survey.flow.find(name);
    if (!setting || setting->built_in || at.disk.makes_at(reference_to(name)))
        return false;
    bool is_asked_for = false;
    for (const Mention *setter : setting->setters) {
        if (setter->file->kind == FileKind::init && setter->line->probe->mode != ICopy &&
            setter->line->probe->mode != IRFile)
            return false;
        if (setter->file->kind != FileKind::questions)
            continue;
        const QType type = setter->line->question->type;
        if (type != QDir && type != QText && type != QDirEmpty)
            return false;
        is_asked_for = true;
    }
    return is_asked_for;
}

// The directory that a command puts something into: "" when it makes that itself, or needs none.
std::string directory_needed(const CommandAt &at)
{
    if (is_copy(at.command))
        return without_slash(dest_of(at));
    if (at.command.type == CpyIni || at.command.type == Rename)
        return without_slash(split_path(dest_of(at)).directory);
    if (at.command.type == WFile)
        return without_slash(split_path(source_of(at)).directory);
    return "";
}

bool is_missing_directory(const CommandAt &at, const std::string &directory)
{
    const Disk &disk = at.disk;
    if (disk.is_file(directory) || is_made_too_late(at, directory))
        return true;
    if (is_rooted(directory) || has_wildcard(directory) || disk.is_directory(directory) ||
        disk.makes_at(directory))
        return false;
    const std::string name = only_reference(directory);
    if (!name.empty())
        return is_unmade_answer(at, name);
    const std::string root = directory.substr(0, directory.find('/'));
    if (is_in_folder(directory))
        return true;
    return disk.makes_at(root)
               ? !disk.may_have(directory) || (disk.found(directory).empty() && root != directory)
               : is_unmade_answer(at, only_reference(root));
}

void destination_unmade(const CommandAt &at, Report &report)
{
    const std::string directory = directory_needed(at);
    const std::string field = text_of(at.command.dest);
    if (is_copy(at.command) &&
        (field.find_first_of("/\\$") == std::string::npos || is_separator(field.back())))
        return;
    if (!directory.empty() && directory != "-" && is_missing_directory(at, directory))
        say(at, report,
            "the directory " + in_quotes(directory) +
                " is made by no command before, and need not be there" +
                meant(path_meant(at, directory)));
}

// --- Removing --------------------------------------------------------------------------------

// In install and upgrade what cannot be removed ends the flow.
void removal_ends_flow(const CommandAt &at, Report &report)
{
    const std::string section = folded(at.section);
    if ((section != "install" && section != "upgrade") || !is_removal(at.command) ||
        at.command.control)
        return;
    const std::string path = without_slash(source_of(at));
    const auto made = at.disk.found(path);
    const bool is_made_here = std::any_of(made.begin(), made.end(), [&](const std::string &one) {
        const Line *line = at.disk.made().at(one).line;
        return line->section == at.line.section && line->command;
    });
    if (!is_made_here && !(is_in_folder(path) && !at.survey.folder.matches(path).empty()))
        say(at, report,
            "where " + in_quotes(path) +
                " is not there, this fails and ends the flow: let \"Exist\" look first");
}

// Only the last component of a path is looked for as a pattern.
void pattern_in_directory(const CommandAt &at, Report &report)
{
    const CType type = at.command.type;
    const bool scans =
        is_copy(at.command) || is_removal(at.command) || type == Chmod || type == Chown;
    const bool is_odd = has_wildcard(split_path(source_of(at)).directory) ||
                        (is_copy(at.command) && has_wildcard(split_path(dest_of(at)).directory));
    if (scans && is_odd)
        say(at, report,
            "only the last component of a path is a pattern: the directory before it is "
            "looked for as it is written");
}

void file_is_directory(const CommandAt &at, Report &report)
{
    const std::string path = source_of(at);
    if (at.command.type == CpyFile && !path.empty() && !has_wildcard(path) &&
        at.disk.is_directory(path) && !is_separator(path.back()))
        say(at, report, "\"CopyFile\" takes no directory: nothing is copied; \"CopyDir\"?");
    if (at.command.type == RmFile && !has_wildcard(path) && at.disk.is_directory(path) &&
        !is_separator(path.back()))
        say(at, report, "\"RmFile\" takes no directory: nothing is removed; \"RmDir\"?");
}

void all_of_a_directory(const CommandAt &at, Report &report)
{
    const std::string path = source_of(at);
    if (!is_removal(at.command) || left_out(at.command))
        return;
    if (!path.empty() && is_separator(path.back()))
        say(at, report, "a path that ends in \"/\" means everything in that directory");
    else if (path == "*")
        say(at, report, "this is everything in the folder of the installer, itself included");
}

// RmDir of what a person has named takes everything in it, whoever has put it there.
void unguarded_removal(const CommandAt &at, Report &report)
{
    const std::string name = only_reference(without_slash(source_of(at)));
    if (at.command.type != RmDir || at.command.control || name.empty())
        return;
    const Setting *setting = at.survey.flow.find(name);
    const bool is_chosen = setting && std::any_of(setting->setters.begin(), setting->setters.end(),
                                                  [](const Mention *one) {
                                                      return one->file->kind == FileKind::questions;
                                                  });
    if (is_chosen && !at.view.may_end())
        say(at, report,
            "this takes a directory that was named in an answer with all that is in it, and "
            "nothing "
            "asks or looks first");
}

// A directory that was there before the product is not the product's to remove.
void foreign_removal(const CommandAt &at, Report &report)
{
    const std::string name = only_reference(without_slash(source_of(at)));
    const Setting *setting = name.empty() ? nullptr : at.survey.flow.find(name);
    if (at.command.type != RmDir || !setting)
        return;
    const bool was_there =
        std::any_of(setting->setters.begin(), setting->setters.end(), [](const Mention *one) {
            return one->file->kind == FileKind::questions &&
                   one->line->question->type == QDirExist &&
                   section_of(*one->file, *one->line) == "install";
        });
    if (was_there)
        say(at, report,
            "install asks for a directory that is there already, and this takes it with all that "
            "is in "
            "it, whoever has put it there");
}

// --- Modes and owners ------------------------------------------------------------------------

// The mode that a command gives; -1 when it is not known, -2 when it is not octal.
int mode_of(const CommandAt &at)
{
    const std::string field = text_of(at.command.dest);
    const Value &value = at.survey.flow.at_load(at.line, only_reference(field));
    const std::string *text = only_reference(field).empty() ? &field : value.only_text();
    if (!text || text->find("$(") != std::string::npos)
        return -1;
    int mode = 0;
    for (const char c : *text) {
        if (c < '0' || c > '7' || mode > 07777)
            return -2;
        mode = mode * 8 + (c - '0');
    }
    return mode > 07777 ? -2 : mode;
}

// What octal digits make of a text, as the command reads it.
unsigned misread_mode(const std::string &text)
{
    unsigned mode = 0;
    for (const char c : text)
        mode = mode * 8 + static_cast<unsigned>(c - '0');
    return mode & 07777;
}

void mode_not_octal(const CommandAt &at, Report &report)
{
    if (at.command.type != Chmod || mode_of(at) != -2)
        return;
    char mode[8];
    std::snprintf(mode, sizeof mode, "%o", misread_mode(at.command.dest));
    say(at, report, in_quotes(at.command.dest) + " is no octal number, and sets the mode " + mode);
}

bool is_named_directory(const CommandAt &at, const std::string &path)
{
    return !has_wildcard(path) && at.disk.is_directory(path);
}

void directory_shut(const CommandAt &at, Report &report)
{
    const int mode = at.command.type == Chmod ? mode_of(at) : -1;
    const std::string path = without_slash(source_of(at));
    if (mode < 0 || (mode & 0100) || !is_named_directory(at, path) ||
        wild_ilist(path.c_str(), left_out(at.command)))
        return;
    say(at, report,
        "mode " + text_of(at.command.dest) + " takes the x off the directory " + in_quotes(path) +
            ", and nobody gets into it any more");
}

constexpr const char *page_endings[] = {".html", ".htm", ".css", ".txt",  ".jpg", ".png", ".gif",
                                        ".svg",  ".js",  ".xml", ".conf", ".ini", ".md"};

bool is_page(const std::string &path)
{
    return std::any_of(std::begin(page_endings), std::end(page_endings),
                       [&](const char *ending) { return folded(path).ends_with(ending); });
}

void pages_executable(const CommandAt &at, Report &report)
{
    const int mode = at.command.type == Chmod ? mode_of(at) : -1;
    const std::string path = without_slash(source_of(at));
    if (mode < 0 || !(mode & 0111) || !at.disk.is_directory(path))
        return;
    const std::string inside = path + "/";
    for (auto place = at.disk.made().lower_bound(inside);
         place != at.disk.made().end() && place->first.starts_with(inside); ++place) {
        const std::string &made = place->first;
        if (place->second.is_directory || !is_page(made) ||
            wild_ilist(made.c_str(), left_out(at.command)) ||
            at.view.has_mode_behind(at.line, made))
            continue;
        say(at, report,
            "\"Chmod\" goes through the whole tree: mode " + text_of(at.command.dest) + " makes " +
                in_quotes(made) + " executable, too");
        return;
    }
}

// A copy has the default mode, whatever the original had.
void not_executable(const CommandAt &at, Report &report)
{
    if (!is_copy(at.command) || folded(at.section) != "install" || !is_in_folder(source_of(at)))
        return;
    Disk copies(at.survey.folder);
    copies.apply(at.line, at.survey.flow);
    for (const auto &[path, what] : copies.made())
        if (at.survey.folder.first_line(what.source).starts_with("#!") &&
            !at.view.has_mode_behind(at.line, path))
            say(at, report,
                in_quotes(what.source) +
                    " is a program, and its copy has the default mode: nothing makes "
                    "it executable");
}

// The system takes the carriage return for a part of the interpreter's name.
void program_line_ends(const CommandAt &at, Report &report)
{
    const std::string source = source_of(at);
    if (!is_copy(at.command) || !is_in_folder(source))
        return;
    for (const FolderEntry &entry : at.survey.folder.matches(source)) {
        const std::string path = split_path(source).directory + entry.name;
        const std::string &line = at.survey.folder.first_line(path);
        if (!entry.is_directory && line.starts_with("#!") && line.ends_with('\r'))
            say(at, report,
                in_quotes(path) + " has carriage returns before its line ends: it cannot be run");
    }
}

void group_of_user(const CommandAt &at, Report &report)
{
    const std::string owner = text_of(at.command.dest);
    if (at.command.type != Chown || owner.find(':') != std::string::npos ||
        owner.find("$(") != std::string::npos)
        return;
    const struct passwd *user = ::getpwnam(owner.c_str());
    if (!user)
        return;
    const gid_t own = user->pw_gid;
    const gid_t number = user->pw_uid;
    const struct group *named = ::getgrnam(owner.c_str());
    const gid_t taken = named ? named->gr_gid : number;
    if (taken == own)
        return;
    const struct group *group = ::getgrgid(own);
    say(at, report,
        "without a \":\" the group is " +
            (named ? "the one called " + in_quotes(owner) : "number " + std::to_string(number)) +
            ", not the user's own" +
            (group ? "; " + in_quotes(owner + ":" + group->gr_name) + "?" : ""));
}

void owner_colon(const CommandAt &at, Report &report)
{
    const std::string owner = text_of(at.command.dest);
    size_t references = 0;
    for_each_reference(owner.c_str(), [&](const Reference &) { references++; });
    const bool is_pair =
        references > 1 ||
        (references == 0 && owner.find('.') != std::string::npos && !::getpwnam(owner.c_str()));
    if (at.command.type == Chown && owner.find(':') == std::string::npos && is_pair)
        say(at, report,
            "a \":\" divides user and group: this is looked for as the name of one user");
}

// --- Files -----------------------------------------------------------------------------------

void rfile_empties(const CommandAt &at, Report &report)
{
    if (at.command.type == RFile && !at.view.removes_behind(at.line, source_of(at)))
        say(at, report,
            "\"RFile\" empties the file here, and reads nothing; the init script is the place to "
            "read");
}

// Whether something in a directory of the folder is a link to a directory, and where; "" when not.
std::string linked_directory(Survey &survey, const std::string &directory, int depth)
{
    constexpr int deepest = 32;
    for (const FolderEntry &entry : std::vector(survey.folder.list(directory))) {
        std::string path = directory + entry.name;
        if (entry.is_link && file_exist(survey.product.path(path).c_str()) == 2)
            return path;
        std::string below = entry.is_directory && depth < deepest
                                ? linked_directory(survey, path + "/", depth + 1)
                                : "";
        if (!below.empty())
            return below;
    }
    return "";
}

void link_in_tree(const CommandAt &at, Report &report)
{
    const std::string source = without_slash(source_of(at));
    if (at.command.type != CpyDir || !is_in_folder(source))
        return;
    for (const FolderEntry &entry : at.survey.folder.matches(source)) {
        const std::string path = split_path(source).directory + entry.name;
        const std::string link =
            entry.is_directory ? linked_directory(at.survey, path + "/", 0) : "";
        if (!link.empty())
            say(at, report, in_quotes(link) + " is a link to a directory, which cannot be copied");
    }
}

void own_file_moved(const CommandAt &at, Report &report)
{
    const std::string path = source_of(at);
    const std::string section = folded(at.section);
    if (at.command.type == Rename && (section == "install" || section == "upgrade") &&
        is_in_folder(path) && at.disk.found(path).empty() &&
        !at.survey.folder.matches(path).empty() && !at.command.control)
        say(at, report,
            "this moves the product's own file away: the next run does not find it and fails");
}

void template_onto_itself(const CommandAt &at, Report &report)
{
    if ((at.command.type == CpyIni || at.command.type == Rename) && source_of(at) == dest_of(at))
        say(at, report, "source and destination are one and the same file");
}

bool is_settings_file(const std::string &path)
{
    const std::string name = folded(split_path(path).name);
    return has_settings_ending(name) || name.find("config") != std::string::npos ||
           name.find("settings") != std::string::npos;
}

// An upgrade that writes a settings file anew loses what was edited in it.
void settings_overwritten(const CommandAt &at, Report &report)
{
    if (folded(at.section) != "upgrade" || at.command.control)
        return;
    std::string path;
    if (at.command.type == CpyIni || at.command.type == Rename)
        path = dest_of(at);
    else if (is_copy(at.command) && !has_wildcard(source_of(at)))
        path = without_slash(dest_of(at)) + "/" + split_path(source_of(at)).name;
    const Disk &installed = at.survey.disks.before("upgrade");
    if (!path.empty() && is_settings_file(path) && !installed.found(path).empty())
        say(at, report,
            "the upgrade writes the settings file " + in_quotes(path) +
                " anew, and what was edited in it is lost: let \"Exist\" look first");
}

void error_without_message(const CommandAt &at, Report &report)
{
    if (at.command.type == Error && text_of(at.command.dest).empty())
        say(at, report, "there is no message: the screen shows \"Failed, \" and no reason");
}

} // namespace

const Rule copy_rules[] = {
    {"destination-slash", Severity::error, nullptr, destination_slash},
    {"destination-bare", Severity::error, nullptr, destination_bare},
    {"destination-unmade", Severity::error, nullptr, destination_unmade},
    {"dash-as-path", Severity::error, nullptr, dash_as_path},
    {"exclusion-path", Severity::error, nullptr, exclusion_path},
    {"exclusion-pieces", Severity::warning, nullptr, exclusion_pieces},
    {"no-match", Severity::error, nullptr, no_match},
    {"removal-ends-flow", Severity::error, nullptr, removal_ends_flow},
    {"pattern-in-directory", Severity::error, nullptr, pattern_in_directory},
    {"file-is-directory", Severity::error, nullptr, file_is_directory},
    {"all-of-a-directory", Severity::error, nullptr, all_of_a_directory},
    {"unguarded-removal", Severity::warning, nullptr, unguarded_removal},
    {"foreign-removal", Severity::error, nullptr, foreign_removal},
    {"owner-colon", Severity::error, nullptr, owner_colon},
    {"link-in-tree", Severity::error, nullptr, link_in_tree},
    {"mode-not-octal", Severity::error, nullptr, mode_not_octal},
    {"directory-shut", Severity::error, nullptr, directory_shut},
    {"pages-executable", Severity::warning, nullptr, pages_executable},
    {"not-executable", Severity::warning, nullptr, not_executable},
    {"program-line-ends", Severity::error, nullptr, program_line_ends},
    {"group-of-user", Severity::warning, nullptr, group_of_user},
    {"rfile-empties", Severity::error, nullptr, rfile_empties},
    {"own-file-moved", Severity::error, nullptr, own_file_moved},
    {"template-onto-itself", Severity::error, nullptr, template_onto_itself},
    {"settings-overwritten", Severity::error, nullptr, settings_overwritten},
    {"error-without-message", Severity::warning, nullptr, error_without_message},
    end_of_rules,
};
