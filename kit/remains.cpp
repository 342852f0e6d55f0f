#include "remains.h"

#include <algorithm>
#include <string>

#include "copy.h"
#include "directory.h"
#include "file.h"
#include "lib.h"
#include "record.h"

namespace {

// A command that was done, its references filled in; its texts are the record's.
copy_cmd command_of(Deed &deed, ScriptLine &line)
{
    const bool has_exclusions = !line.not_.empty() && line.not_ != "-";
    return {.source = deed.source.data(),
            .dest = deed.dest.data(),
            .not_ = has_exclusions ? line.not_.data() : nullptr,
            .control = nullptr,
            .control_cmp = nullptr,
            .type = line.type};
}

// What the command makes; null for one that makes nothing.
const char *target_of(const copy_cmd &command)
{
    switch (command.type) {
    case MkDir:
    case WFile:
    case RFile:
        return command.source;
    case CpyFile:
    case CpyDir:
    case CpyIni:
    case Rename:
        return command.dest;
    default:
        return nullptr;
    }
}

std::string full_path(const std::string &path)
{
    char here[path_size] = "";
    return path.starts_with('/')
               ? path
               : std::string(currentdir(here, path_size) ? here : "") + "/" + path;
}

// Whether a later command may have made the entry, something in it, or what it is in.
bool is_made_later(RunRecord &record, size_t number, const std::string &entry)
{
    const std::string path = full_path(entry);
    return std::any_of(record.deeds.begin() + static_cast<std::ptrdiff_t>(number) + 1,
                       record.deeds.end(), [&](Deed &deed) {
                           const copy_cmd command = command_of(deed, record.script[deed.line]);
                           const char *target = deed.is_skipped ? nullptr : target_of(command);
                           return target && (is_below(full_path(target), path) ||
                                             is_below(path, full_path(target)));
                       });
}

void note_remains_of(RunRecord &record, size_t number)
{
    Deed &deed = record.deeds[number];
    copy_cmd command = command_of(deed, record.script[deed.line]);
    // A directory stays with what was excluded from its removal.
    if (command.type != RmFile && (command.type != RmDir || command.not_))
        return;
    const copy script = {.list = &command, .ini = nullptr, .count = 1};
    char directory[path_size] = "";
    char wild[path_size] = "";
    if (!copy_src_path(&script, 0, directory, path_size) ||
        !copy_src_file(&script, 0, wild, path_size))
        return;
    for (Scan scan(directory, wild); scan.entry(); scan.next()) {
        const Entry &entry = *scan.entry();
        const bool is_meant = command.type == RmDir || !is_directory(entry);
        if (is_meant && !wild_ilist(entry.name, command.not_) &&
            !is_made_later(record, number, entry.path))
            deed.errors.push_back("'" + std::string(entry.path) + "' is still there");
    }
}

} // namespace

void note_remains(RunRecord &record)
{
    for (size_t number = 0; number < record.deeds.size(); number++)
        if (!record.deeds[number].is_skipped)
            note_remains_of(record, number);
}
