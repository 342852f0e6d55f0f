#include "difference.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <utility>

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "directory.h"
#include "foreign.h"
#include "json.h"
#include "mounts.h"
#include "names.h"

// --- Looking at entries ----------------------------------------------------------------------

namespace {

void add_names(const Descriptor &root, const std::string &within, std::set<std::string> &names)
{
    const Directory directory = open_list(root.get(), within.c_str());
    while (const dirent *entry = next_entry(directory))
        names.insert(entry->d_name);
}

bool look(const Descriptor &root, const std::string &within, struct stat &info)
{
    return ::fstatat(root.get(), within.c_str(), &info, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0;
}

std::string link_target(const Descriptor &root, const std::string &within)
{
    std::string target(PATH_MAX, '\0');
    const ssize_t length = ::readlinkat(root.get(), within.c_str(), target.data(), target.size());
    target.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return target;
}

Descriptor open_file(const Descriptor &root, const std::string &within)
{
    return Descriptor(
        ::openat(root.get(), within.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

using Block = std::array<char, 65536>;

// Fills the block as far as the file goes; -1 for an error.
ssize_t read_block(const Descriptor &file, Block &block)
{
    size_t filled = 0;
    while (filled < block.size()) {
        const ssize_t got = ::read(file.get(), block.data() + filled, block.size() - filled);
        if (got < 0 && errno != EINTR)
            return -1;
        if (got == 0)
            break;
        filled += got > 0 ? static_cast<size_t>(got) : 0;
    }
    return static_cast<ssize_t>(filled);
}

enum class Likeness { same, other, unknown };

Likeness compare_content(const Descriptor &before, const Descriptor &after)
{
    Block first;
    Block second;
    while (true) {
        const ssize_t size = read_block(before, first);
        if (size < 0 || read_block(after, second) != size)
            return size < 0 ? Likeness::unknown : Likeness::other;
        if (size == 0)
            return Likeness::same;
        if (std::memcmp(first.data(), second.data(), static_cast<size_t>(size)) != 0)
            return Likeness::other;
    }
}

// FNV-1a.
std::uint64_t digest_of(const Descriptor &file)
{
    std::uint64_t digest = 14695981039346656037U;
    Block block;
    while (const ssize_t size = read_block(file, block)) {
        if (size < 0)
            break;
        for (ssize_t at = 0; at < size; at++)
            digest = (digest ^ static_cast<unsigned char>(block[static_cast<size_t>(at)])) *
                     1099511628211U;
    }
    return digest;
}

// --- Comparing a layer -----------------------------------------------------------------------

// How much of a directory has to be looked at: what was taken up in it, or all of it.
enum class Extent { taken_up, whole };

class Comparison {
  public:
    Comparison(const View &view, size_t number, bool digests, std::vector<Difference> &found)
        : layer(view.layers()[number]), layer_number(number), wants_digests(digests),
          prefix(view.notes() == Notes::trusted ? "trusted.overlay." : "user.overlay."),
          differences(found)
    {
    }

    void run()
    {
        struct stat now {};
        if (!look(layer.merged, ".", now))
            return;
        struct stat root = layer.root;
        keep_group(root, now);
        judge(".", &root, &now);
        if (layer.is_frame)
            compare_frame();
        else
            compare_directory(".", Extent::taken_up);
        compare_other_names();
    }

    // Sentences about files that have several names, where the view cannot keep them one file.
    std::vector<std::string> said;

  private:
    // The view's own root is the user's, whatever group it has in reality; once a program has given
    // it another one, there is no note any more.
    void keep_group(struct stat &root, const struct stat &now) const
    {
        struct stat lower {};
        if (noted_group(".", now.st_gid) != now.st_gid)
            root.st_gid = noted_group(".", now.st_gid);
        else if (look(layer.lower, ".", lower) && lower.st_uid == root.st_uid)
            root.st_gid = lower.st_gid;
    }

    // What was made anew in the user's name has its real group in a note.
    gid_t noted_group(const std::string &within, gid_t otherwise) const
    {
        if (prefix.starts_with("trusted"))
            return otherwise;
        return noted(descriptor_path(layer.upper.get()) + '/' + within, group_note)
            .value_or(otherwise);
    }

    std::string path_of(const std::string &within) const
    {
        return within == "." ? layer.path : child_path(layer.path, within);
    }

    static std::string below(const std::string &directory, const std::string &name)
    {
        return directory == "." ? name : directory + '/' + name;
    }

    bool has_note(const std::string &within, const char *note, const char *value) const
    {
        char text[8] = "";
        const std::string path = descriptor_path(layer.upper.get()) + '/' + within;
        const ssize_t size = ::lgetxattr(path.c_str(), (prefix + note).c_str(),
                                         value ? text : nullptr, value ? sizeof text - 1 : 0);
        return size >= 0 && (!value || std::strcmp(text, value) == 0);
    }

    // True when what the machine has in a directory is not what shows through in the view.
    bool stands_alone(const std::string &within) const
    {
        return has_note(within, "opaque", "y") || has_note(within, "redirect", nullptr);
    }

    void compare_directory(const std::string &within, Extent extent)
    {
        std::set<std::string> names;
        if (extent == Extent::taken_up) {
            add_names(layer.upper, within, names);
        } else {
            add_names(layer.lower, within, names);
            add_names(layer.merged, within, names);
        }
        for (const std::string &name : names)
            compare_entry(below(within, name), extent);
    }

    void compare_entry(const std::string &within, Extent extent)
    {
        struct stat before {};
        struct stat after {};
        const bool was = look(layer.lower, within, before);
        const bool is = look(layer.merged, within, after);
        judge(within, was ? &before : nullptr, is ? &after : nullptr);
        const bool was_directory = was && S_ISDIR(before.st_mode);
        const bool is_directory = is && S_ISDIR(after.st_mode);
        if (!was_directory && !is_directory)
            return;
        const bool shows_through =
            was_directory && is_directory && extent == Extent::taken_up && !stands_alone(within);
        compare_directory(within, shows_through ? Extent::taken_up : Extent::whole);
    }

    // What was in a frame from the start is a mount, and stays; only links are not. What others
    // make or remove on the machine meanwhile is no change of the view's.
    void compare_frame()
    {
        std::set<std::string> names;
        add_names(layer.merged, ".", names);
        add_names(layer.lower, ".", names);
        for (const std::string &name : names) {
            struct stat before {};
            struct stat after {};
            const bool was = look(layer.lower, name, before);
            const bool is = look(layer.merged, name, after);
            const bool is_new = is && is_after_start(after) && after.st_dev == layer.root.st_dev &&
                                after.st_mode != frame_place;
            const bool was_link = was && S_ISLNK(before.st_mode) && !is_after_start(before);
            const bool same_link =
                was_link && link_target(layer.lower, name) == link_target(layer.merged, name);
            if (was_link ? !same_link : !was && is_new)
                compare_entry(name, Extent::whole);
        }
    }

    // The frame's own face was taken when it was complete.
    bool is_after_start(const struct stat &info) const
    {
        const timespec &start = layer.root.st_ctim;
        return info.st_ctim.tv_sec != start.tv_sec ? info.st_ctim.tv_sec > start.tv_sec
                                                   : info.st_ctim.tv_nsec > start.tv_nsec;
    }

    Face face_of(const Descriptor &root, const std::string &within, const struct stat &info) const
    {
        Face face = {.mode = info.st_mode, .owner = info.st_uid, .group = info.st_gid};
        if (S_ISREG(info.st_mode))
            face.size = info.st_size;
        if (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode))
            face.device = info.st_rdev;
        if (S_ISLNK(info.st_mode))
            face.target = link_target(root, within);
        return face;
    }

    bool has_other_content(const std::string &within, const struct stat &before,
                           const struct stat &after) const
    {
        if (before.st_size != after.st_size)
            return true;
        // Only its face was taken up, and of this very file: it was not renamed.
        if (has_note(within, "metacopy", nullptr) && !has_note(within, "redirect", nullptr))
            return false;
        const Likeness likeness =
            compare_content(open_file(layer.lower, within), open_file(layer.merged, within));
        if (likeness != Likeness::unknown)
            return likeness == Likeness::other;
        return before.st_mtim.tv_sec != after.st_mtim.tv_sec ||
               before.st_mtim.tv_nsec != after.st_mtim.tv_nsec;
    }

    // Takes note of an entry that differs; null: there is nothing.
    void judge(const std::string &within, const struct stat *before, const struct stat *after)
    {
        Difference difference = {.path = path_of(within),
                                 .change = !before  ? Change::created
                                           : !after ? Change::removed
                                                    : Change::changed,
                                 .before = before ? face_of(layer.lower, within, *before) : Face{},
                                 .after = after ? face_of(layer.merged, within, *after) : Face{},
                                 .other_content = false,
                                 .layer = layer_number,
                                 .within = within};
        if (after)
            difference.after.group = noted_group(within, after->st_gid);
        if (before && after && S_ISREG(before->st_mode) && S_ISREG(after->st_mode))
            difference.other_content = has_other_content(within, *before, *after);
        if (difference.before == difference.after && !difference.other_content)
            return;
        if (wants_digests && after && S_ISREG(after->st_mode))
            difference.after.digest = digest_of(open_file(layer.merged, within));
        if (before && after && !S_ISDIR(before->st_mode) && before->st_nlink > 1)
            shared.insert(before->st_ino);
        differences.push_back(std::move(difference));
    }

    // A changed file may have other names, under which it has changed as well. Only the whole file
    // system tells which.
    void compare_other_names()
    {
        if (shared.empty())
            return;
        if (!layer.keeps_names) {
            said.push_back("a file that was changed below '" + layer.path +
                           "' has other names, under which it stays as it was in this view");
            return;
        }
        std::set<std::string> known;
        for (const Difference &difference : differences)
            known.insert(difference.path);
        std::vector<std::string> names;
        find_names(".", names);
        for (const std::string &within : names)
            if (!known.contains(path_of(within)))
                compare_entry(within, Extent::taken_up);
    }

    void find_names(const std::string &within, std::vector<std::string> &names) const
    {
        const Directory directory = open_list(layer.lower.get(), within.c_str());
        while (const dirent *entry = next_entry(directory)) {
            if (entry->d_type == DT_DIR)
                find_names(below(within, entry->d_name), names);
            else if (shared.contains(entry->d_ino))
                names.push_back(below(within, entry->d_name));
        }
    }

    const Layer &layer;
    const size_t layer_number;
    const bool wants_digests;
    const std::string prefix; // of the names under which overlays note down what they did
    std::vector<Difference> &differences;
    std::set<ino_t> shared; // changed files that have several names
};

} // namespace

std::vector<Difference> find_differences(const View &view, bool digests,
                                         std::vector<std::string> &said)
{
    std::vector<Difference> differences;
    for (size_t number = 0; number < view.layers().size(); number++) {
        Comparison comparison(view, number, digests, differences);
        comparison.run();
        said.insert(said.end(), comparison.said.begin(), comparison.said.end());
    }
    std::ranges::sort(differences, {}, &Difference::path);
    return differences;
}

Descriptor open_before(const View &view, const Difference &difference)
{
    return S_ISREG(difference.before.mode)
               ? open_file(view.layers()[difference.layer].lower, difference.within)
               : Descriptor();
}

Descriptor open_after(const View &view, const Difference &difference)
{
    return S_ISREG(difference.after.mode)
               ? open_file(view.layers()[difference.layer].merged, difference.within)
               : Descriptor();
}

// --- A unified diff --------------------------------------------------------------------------

namespace {

// The path under which another program reads a file that is open here.
std::string readable_path(const Descriptor &file)
{
    if (!file.is_open())
        return "/dev/null";
    ::fcntl(file.get(), F_SETFD, 0);
    return descriptor_path(file.get());
}

// The program's whole output; false when it could not be started or had trouble.
bool output_of(const std::vector<std::string> &words, std::string &output)
{
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const Descriptor from(ends[0]);
    Descriptor to(ends[1]);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(to.get(), STDOUT_FILENO);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    to.close();
    Block block;
    for (ssize_t size = 0; (size = read_block(from, block)) > 0;)
        output.append(block.data(), static_cast<size_t>(size));
    int waited = 0;
    while (child > 0 && ::waitpid(child, &waited, 0) < 0 && errno == EINTR)
        continue;
    // 1 says that there are differences.
    return child > 0 && WIFEXITED(waited) && WEXITSTATUS(waited) <= 1;
}

} // namespace

bool unified_diff(const View &view, const Difference &difference, std::string &text)
{
    const bool both = S_ISREG(difference.before.mode) && S_ISREG(difference.after.mode);
    if (both && !difference.other_content)
        return true;
    const Descriptor before = open_before(view, difference);
    const Descriptor after = open_after(view, difference);
    if (!before.is_open() && !after.is_open())
        return true;
    const std::string label = printable(difference.path);
    return output_of({"diff", "-u", "--label", before.is_open() ? label : "/dev/null", "--label",
                      after.is_open() ? label : "/dev/null", readable_path(before),
                      readable_path(after)},
                     text);
}

// --- In words --------------------------------------------------------------------------------

namespace {

struct type_word {
    mode_t type;
    char letter;
    const char *word;
};

constexpr type_word type_words[] = {
    {S_IFREG, '-', "file"},         {S_IFDIR, 'd', "directory"}, {S_IFLNK, 'l', "link"},
    {S_IFIFO, 'p', "fifo"},         {S_IFSOCK, 's', "socket"},   {S_IFCHR, 'c', "character device"},
    {S_IFBLK, 'b', "block device"},
};

const type_word &type_of(mode_t mode)
{
    for (const type_word &each : type_words)
        if ((mode & S_IFMT) == each.type)
            return each;
    return type_words[0];
}

// "-rw-r--r--", as ls shows it.
std::string mode_word(mode_t mode)
{
    std::string word = "?rwxrwxrwx";
    word[0] = type_of(mode).letter;
    for (size_t bit = 0; bit < 9; bit++)
        if (!(mode & (0400U >> bit)))
            word[bit + 1] = '-';
    constexpr std::pair<mode_t, size_t> marks[] = {{S_ISUID, 3}, {S_ISGID, 6}, {S_ISVTX, 9}};
    for (const auto &[bit, place] : marks)
        if (mode & bit)
            word[place] = static_cast<char>((word[place] == '-' ? 'S' : 's') + (place == 9));
    return word;
}

const Face &face_of(const Difference &difference)
{
    return difference.change == Change::removed ? difference.before : difference.after;
}

// What of an entry that stays has changed.
std::vector<std::string> differing(const Difference &difference)
{
    const Face &before = difference.before;
    const Face &after = difference.after;
    std::vector<std::string> words;
    if ((before.mode & S_IFMT) != (after.mode & S_IFMT) || before.device != after.device)
        words.emplace_back("type");
    if (difference.other_content)
        words.emplace_back("content");
    if (((before.mode ^ after.mode) & 07777) != 0)
        words.emplace_back("mode");
    if (before.owner != after.owner || before.group != after.group)
        words.emplace_back("owner");
    if (before.target != after.target)
        words.emplace_back("target");
    return words;
}

// The same, with what it was before.
std::string was(const Difference &difference)
{
    const Face &before = difference.before;
    std::string text;
    for (const std::string &word : differing(difference)) {
        text += (text.empty() ? "" : ", ") + word;
        if (word == "type")
            text += std::string(" was ") + type_of(before.mode).word;
        else if (word == "mode")
            text += " was " + octal_mode(before.mode);
        else if (word == "owner")
            text += " was " + owner_name(before.owner) + ':' + group_name(before.group);
        else if (word == "target" && !before.target.empty())
            text += " was " + printable(before.target);
    }
    return text;
}

bool is_device(mode_t mode)
{
    return S_ISCHR(mode) || S_ISBLK(mode);
}

std::string size_word(const Face &face)
{
    if (S_ISREG(face.mode))
        return std::to_string(face.size);
    return is_device(face.mode)
               ? std::to_string(major(face.device)) + ',' + std::to_string(minor(face.device))
               : "-";
}

std::string base16(const std::string &bytes)
{
    constexpr const char *digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += {digits[value >> 4U], digits[value & 0xfU]};
    }
    return text;
}

// A name as it is and, where JSON cannot hold that, its bytes beside it.
void add_name(JsonWriter &json, const std::string &key, const std::string &name)
{
    json.add(key, name);
    if (utf8_of(name) != name)
        json.add(key + "_base16", base16(name));
}

void add_facts(JsonWriter &json, const Face &face)
{
    json.add("type", type_of(face.mode).word);
    json.add("mode", octal_mode(face.mode));
    json.add("owner", owner_name(face.owner));
    json.add("group", group_name(face.group));
    json.add_number("uid", face.owner);
    json.add_number("gid", face.group);
    if (S_ISREG(face.mode))
        json.add_number("size", static_cast<std::uint64_t>(face.size));
    if (is_device(face.mode))
        json.add("device", size_word(face));
    if (S_ISLNK(face.mode))
        add_name(json, "target", face.target);
}

} // namespace

std::string octal_mode(mode_t mode)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode & 07777);
    return text;
}

const char *change_word(Change change)
{
    constexpr const char *words[] = {"created", "changed", "removed"};
    return words[static_cast<size_t>(change)];
}

std::string printable(const std::string &name)
{
    std::string text;
    for (const char each : name) {
        char escaped[5];
        const auto byte = static_cast<unsigned char>(each);
        std::snprintf(escaped, sizeof escaped, "\\%03o", byte);
        text += byte < ' ' || byte == 0x7f || byte == '\\' ? std::string(escaped)
                                                           : std::string(1, each);
    }
    return text;
}

std::string as_text(const Difference &difference)
{
    const Face &face = face_of(difference);
    char facts[256];
    std::snprintf(facts, sizeof facts, "%s  %s %-8s %-8s %8s ", change_word(difference.change),
                  mode_word(face.mode).c_str(), owner_name(face.owner).c_str(),
                  group_name(face.group).c_str(), size_word(face).c_str());
    std::string line = facts + printable(difference.path);
    if (S_ISLNK(face.mode))
        line += " -> " + printable(face.target);
    if (difference.change == Change::changed)
        line += "  (" + was(difference) + ')';
    return line;
}

std::string as_json(const Difference &difference, const std::string &diff)
{
    JsonWriter json;
    json.begin('{');
    json.add("change", change_word(difference.change));
    add_name(json, "path", difference.path);
    add_facts(json, face_of(difference));
    if (difference.change == Change::changed) {
        json.begin("differs", '[');
        for (const std::string &word : differing(difference))
            json.add(word);
        json.end();
        json.begin("before", '{');
        add_facts(json, difference.before);
        json.end();
    }
    if (!diff.empty())
        json.add("diff", diff);
    json.end();
    return json.text();
}
