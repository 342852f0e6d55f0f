#include "disk.h"

#include <algorithm>
#include <cstring>

#include <sys/stat.h>

#include "file.h"
#include "lib.h"

// --- The product's folder --------------------------------------------------------------------

const std::vector<FolderEntry> &Folder::list(const std::string &directory)
{
    const auto [place, is_new] = known.try_emplace(directory);
    if (!is_new)
        return place->second;
    const std::string path = product.path(directory.empty() ? "." : directory);
    if (file_exist(path.c_str()) != 2)
        return place->second;
    for (Scan scan(path.c_str(), "*"); scan.entry(); scan.next()) {
        const Entry &entry = *scan.entry();
        place->second.push_back({.name = entry.name,
                                 .is_directory = is_directory(entry),
                                 .is_link = S_ISLNK(entry.kind)});
    }
    std::sort(place->second.begin(), place->second.end(),
              [](const FolderEntry &a, const FolderEntry &b) { return a.name < b.name; });
    return place->second;
}

const Words &Folder::paths(const std::string &directory)
{
    const auto [place, is_new] = known_paths.try_emplace(directory);
    if (!is_new)
        return place->second;
    std::vector<std::string> paths;
    for (const FolderEntry &entry : list(directory))
        paths.push_back(directory + entry.name);
    return place->second = Words(std::move(paths));
}

const std::vector<FolderEntry> &Folder::matches(const std::string &path)
{
    const auto [known_place, is_new] = known_matches.try_emplace(path);
    std::vector<FolderEntry> &found = known_place->second;
    if (!is_new)
        return found;
    const SplitPath split = split_path(path);
    const std::vector<FolderEntry> &entries = list(split.directory);
    if (!has_wildcard(split.name)) {
        const auto place = std::lower_bound(
            entries.begin(), entries.end(), split.name,
            [](const FolderEntry &entry, const std::string &name) { return entry.name < name; });
        if (place != entries.end() && place->name == split.name)
            found.push_back(*place);
        return found;
    }
    for (const FolderEntry &entry : entries)
        if (wild_match(entry.name.c_str(), split.name.c_str()))
            found.push_back(entry);
    return found;
}

const std::string &Folder::first_line(const std::string &path)
{
    const auto [place, is_new] = first_lines.try_emplace(path);
    std::vector<TemplateLine> lines;
    if (is_new && read_template(product.path(path), lines) && !lines.empty())
        place->second = lines[0].text;
    return place->second;
}

bool has_wildcard(const std::string &path)
{
    return path.find_first_of("*?") != std::string::npos;
}

SplitPath split_path(const std::string &path)
{
    const auto length = static_cast<size_t>(last_component(path.c_str()) - path.c_str());
    return {.directory = path.substr(0, length), .name = path.substr(length)};
}

std::string without_slash(std::string path)
{
    while (path.size() > 1 && is_separator(path.back()))
        path.pop_back();
    return path;
}

bool lies_in(const std::string &path, const std::string &directory)
{
    return path.starts_with(directory) && path.find('/', directory.size()) == std::string::npos;
}

bool is_in_folder(const std::string &path)
{
    return !path.empty() && !is_separator(path[0]) && !path.starts_with("..") &&
           path.find("$(") == std::string::npos && path.find("/..") == std::string::npos;
}

// --- The model -------------------------------------------------------------------------------

namespace {

std::string joined_path(const std::string &directory, const std::string &name)
{
    return directory.empty() ? name : without_slash(directory) + "/" + name;
}

// Below the directory, which is not counted itself; of a script's path both separators count.
bool is_inside(std::string_view path, std::string_view directory)
{
    return path.size() > directory.size() && path.starts_with(directory) &&
           is_separator(path[directory.size()]);
}

// Where in the order of paths those in a directory have come to their end.
std::string behind(std::string_view directory)
{
    return std::string(directory) + static_cast<char>('/' + 1);
}

// The references of a path, which stand for its unknown parts.
std::string references_of(const std::string &path)
{
    std::string references;
    for_each_reference(path.c_str(), [&](const Reference &reference) {
        references += reference.name;
        references += ')';
    });
    return references;
}

// The part of a path up to its first separator.
std::string root_of(const std::string &path)
{
    return path.substr(0, path.find('/'));
}

// "-" and nothing both leave nothing out.
const char *exclusions(const copy_cmd &command)
{
    return s_strcmp(command.not_, "-") == 0 ? nullptr : command.not_;
}

} // namespace

// The last command that writes a file counts, and the first that makes a directory.
void Disk::put(const std::string &path, const Made &what)
{
    if (what.is_directory)
        all.try_emplace(path, what);
    else
        all.insert_or_assign(path, what);
}

void Disk::make(const std::string &path, const Made &what)
{
    const std::string clean = without_slash(path);
    if (clean.empty())
        return;
    put(clean, what);
    if (!what.is_directory)
        return;
    // Those above it are made as well.
    for (size_t at = clean.rfind('/'); at != std::string::npos && at > 0;
         at = clean.rfind('/', at - 1))
        put(clean.substr(0, at), what);
}

void Disk::add(const Disk &other)
{
    // One lies close behind the other.
    auto behind = all.begin();
    for (const auto &each : other.all)
        behind = std::next(all.insert(behind, each));
    gone.insert(other.gone.begin(), other.gone.end());
    opaque.insert(other.opaque.begin(), other.opaque.end());
}

std::vector<std::string> Disk::found(const std::string &path) const
{
    const SplitPath split = split_path(path);
    std::vector<std::string> paths;
    if (!has_wildcard(split.name)) {
        if (all.contains(path))
            paths.push_back(path);
        return paths;
    }
    const size_t length = split.directory.size();
    const std::string begin = path.substr(0, path.find_first_of("*?", length));
    for (auto place = all.lower_bound(begin);
         place != all.end() && place->first.starts_with(begin);) {
        const size_t end = place->first.find('/', length);
        if (end != std::string::npos) {
            const std::string_view directory(place->first.data(), end);
            if (++place != all.end() && is_inside(place->first, directory))
                place = all.lower_bound(behind(directory));
            continue;
        }
        if (wild_match(place->first.c_str() + length, split.name.c_str()))
            paths.push_back(place->first);
        ++place;
    }
    return paths;
}

bool Disk::makes_at(const std::string &path) const
{
    const std::string clean = without_slash(path);
    const auto place = all.lower_bound(clean);
    return place != all.end() &&
           (place->first == clean || all.lower_bound(clean + "/") != all.end()) &&
           (place->first == clean || is_inside(all.lower_bound(clean + "/")->first, clean));
}

bool Disk::may_have(const std::string &path) const
{
    const SplitPath split = split_path(path);
    if (path.empty() || is_separator(path[0]) || path.starts_with("..") ||
        split.directory.find_first_of("*?") != std::string::npos || !found(path).empty())
        return true;
    const bool in_unknown = std::any_of(opaque.begin(), opaque.end(), [&](const auto &directory) {
        return is_inside(path, directory) || path == directory;
    });
    if (in_unknown)
        return true;
    if (is_in_folder(path))
        return !folder->matches(path).empty();
    const std::string root = root_of(path);
    if (root == path || !makes_at(root))
        return true;
    // Another way to write the same unknown directory may lead there, too.
    const std::string references = references_of(path);
    for (auto place = all.lower_bound(root); place != all.end() && place->first.starts_with(root);
         ++place)
        if (root_of(place->first) == root && references_of(place->first) == references)
            return false;
    return true;
}

bool Disk::is_directory(const std::string &path) const
{
    const std::string clean = without_slash(path);
    if (const auto place = all.find(clean); place != all.end())
        return place->second.is_directory;
    if (!is_in_folder(clean))
        return false;
    const auto &entries = folder->matches(clean);
    return entries.size() == 1 && entries[0].name == split_path(clean).name &&
           entries[0].is_directory;
}

bool Disk::is_file(const std::string &path) const
{
    const auto place = all.find(without_slash(path));
    return place != all.end() && !place->second.is_directory;
}

void Disk::copy_tree(const std::string &from, const std::string &to, const Line &line,
                     const char *not_list, int depth)
{
    constexpr int deepest = 32;
    make(to, {.line = &line, .is_directory = true, .source = from});
    if (depth == deepest)
        return;
    for (const FolderEntry &entry : std::vector(folder->list(joined_path(from, "")))) {
        if (wild_list(entry.name.c_str(), not_list))
            continue;
        const std::string source = joined_path(from, entry.name);
        const std::string target = joined_path(to, entry.name);
        if (entry.is_directory)
            copy_tree(source, target, line, not_list, depth + 1);
        else
            make(target, {.line = &line, .is_directory = false, .source = source});
    }
}

// Copies what commands have made; what a tree of it leaves out is not looked at.
void Disk::copy_made(const std::string &source, const std::string &target, const Line &line)
{
    const copy_cmd &command = *line.command;
    std::map<std::string, Made> copies;
    for (const std::string &one : found(source)) {
        const std::string name = split_path(one).name;
        const std::string to = joined_path(target, name);
        if (wild_ilist(name.c_str(), exclusions(command)))
            continue;
        if (!is_directory(one))
            copies[to] = {.line = &line, .is_directory = false, .source = ""};
        else if (command.type == CpyDir)
            for (auto place = all.lower_bound(one);
                 place != all.end() && place->first.starts_with(one); ++place)
                if (place->first == one || is_inside(place->first, one))
                    copies[to + place->first.substr(one.size())] = {
                        .line = &line, .is_directory = place->second.is_directory, .source = ""};
    }
    for (const auto &[path, what] : copies)
        make(path, what);
}

void Disk::apply_copy(const Line &line, const Flow &flow)
{
    const copy_cmd &command = *line.command;
    std::string source = flow.path(command.source);
    const std::string target = without_slash(flow.path(command.dest));
    if (split_path(source).name.empty())
        source += "*";
    const SplitPath split = split_path(source);
    if (!is_in_folder(source)) {
        // Which names these are is known when a command made them, and else for a plain name.
        if (!found(source).empty())
            copy_made(source, target, line);
        else if (split.name.find_first_of("*?$") == std::string::npos)
            make(joined_path(target, split.name),
                 {.line = &line, .is_directory = false, .source = ""});
        else
            opaque.insert(target);
        return;
    }
    copy_made(source, target, line);
    for (const FolderEntry &entry : folder->matches(source)) {
        if (wild_ilist(entry.name.c_str(), exclusions(command)))
            continue;
        const std::string from = joined_path(split.directory, entry.name);
        const std::string to = joined_path(target, entry.name);
        if (!entry.is_directory)
            make(to, {.line = &line, .is_directory = false, .source = from});
        else if (command.type == CpyDir)
            copy_tree(from, to, line, exclusions(command), 0);
    }
}

void Disk::remove(const std::string &path)
{
    auto behind = gone.lower_bound(path);
    for (auto place = all.lower_bound(path); place != all.end() && place->first.starts_with(path);)
        if (place->first == path || is_inside(place->first, path))
            behind = std::next(gone.insert(behind, std::move(all.extract(place++).key())));
        else
            ++place;
}

void Disk::rename(const std::string &from, const std::string &to, const Line &line,
                  bool for_certain)
{
    std::vector<std::pair<std::string, Made>> moved;
    for (auto place = all.lower_bound(from); place != all.end() && place->first.starts_with(from);
         ++place)
        if (place->first == from || is_inside(place->first, from))
            moved.emplace_back(to + place->first.substr(from.size()), place->second);
    if (moved.empty())
        moved.emplace_back(to, Made{.line = &line, .is_directory = false, .source = ""});
    if (for_certain)
        remove(from);
    for (const auto &[path, what] : moved)
        put(path, what);
}

void Disk::apply(const Line &line, const Flow &flow)
{
    const copy_cmd &command = *line.command;
    const std::string source = flow.path(command.source);
    switch (command.type) {
    case MkDir:
        make(source, {.line = &line, .is_directory = true, .source = ""});
        break;
    case CpyFile:
    case CpyDir:
        apply_copy(line, flow);
        break;
    case CpyIni:
        make(flow.path(command.dest), {.line = &line, .is_directory = false, .source = ""});
        break;
    case WFile:
    case RFile:
        make(source, {.line = &line, .is_directory = false, .source = ""});
        break;
    case Rename:
        rename(without_slash(source), without_slash(flow.path(command.dest)), line,
               !command.control);
        break;
    case RmFile:
    case RmDir:
        if (!command.control)
            for (const std::string &path : found(source))
                if (!wild_ilist(split_path(path).name.c_str(), exclusions(command)))
                    remove(path);
        break;
    default:
        break;
    }
}

void walk_section(const Product &product, const Flow &flow, const std::string &section, Disk &disk,
                  const CommandStep &step)
{
    for (const Line *line : entries_of(product.copy, section)) {
        step(*line, *line->command, disk);
        disk.apply(*line, flow);
    }
}

Disks::Disks(const Product &of, const Flow &with, Folder &in)
    : fresh(in), installed(in), upgraded(in)
{
    const auto nothing = [](const Line &, const copy_cmd &, const Disk &) {};
    for (const Line &line : of.init.lines)
        if (line.kind == LineKind::entry && line.probe->mode == IWFile)
            fresh.make(with.path(line.probe->a),
                       {.line = &line, .is_directory = false, .source = ""});
    installed = fresh;
    walk_section(of, with, "install", installed, nothing);
    upgraded = installed;
    walk_section(of, with, "upgrade", upgraded, nothing);
    // What install has made is still there where upgrade would have taken it away.
    upgraded.add(installed);
    const auto note_all = [&](const Disk &disk) {
        for (const auto &[path, what] : disk.made())
            all_written.insert(all_written.end(), path);
        all_written.insert(disk.taken().begin(), disk.taken().end());
    };
    if (!of.copy.sections.empty())
        note_all(upgraded);
    for (const Section &section : of.copy.sections) {
        const std::string name = folded(section.name);
        if (!section.is_read || name == "install" || name == "upgrade" ||
            entries_of(of.copy, name).empty())
            continue;
        Disk disk = upgraded;
        walk_section(of, with, section.name, disk, nothing);
        note_all(disk);
    }
    all_paths = Words({all_written.begin(), all_written.end()});
    for (const Line &line : of.copy.lines)
        if (line.kind == LineKind::entry && line.command->type == MkDir)
            directories.insert(without_slash(with.path(line.command->source)));
}

const Disk &Disks::before(const std::string &section) const
{
    const std::string name = folded(section);
    return name == "install" ? fresh : name == "upgrade" ? installed : upgraded;
}

std::string Disks::nearest_written(const std::string &path) const
{
    NearestWord nearest(path);
    const SplitPath wanted = split_path(path);
    const auto parts = std::count(path.begin(), path.end(), '/');
    nearest.look_among(all_paths, [&](const std::string &one) {
        if (std::count(one.begin(), one.end(), '/') != parts)
            return NearestWord::not_meant;
        const SplitPath split = split_path(one);
        return split.directory == wanted.directory ? 0
               : split.name == wanted.name         ? 1
                                                   : NearestWord::not_meant;
    });
    return nearest.best();
}

bool Disks::makes_directory(const std::string &directory) const
{
    const auto below = directories.lower_bound(directory + "/");
    return directories.contains(directory) ||
           (below != directories.end() && is_inside(*below, directory));
}
