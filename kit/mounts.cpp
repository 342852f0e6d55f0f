#include "mounts.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <linux/mount.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "directory.h"
#include "lib.h"

namespace {

// A flag's word among a mount's options.
struct mount_flag {
    const char *word;
    unsigned long flag;
};

constexpr mount_flag mount_flags[] = {
    {"nosuid", MS_NOSUID},         {"nodev", MS_NODEV},       {"noexec", MS_NOEXEC},
    {"noatime", MS_NOATIME},       {"relatime", MS_RELATIME}, {"ro", MS_RDONLY},
    {"nodiratime", MS_NODIRATIME},
};

// File systems that show the system's own state: they are carried along as they are.
constexpr const char *pseudo_types[] = {
    "proc",    "sysfs",     "devtmpfs", "devpts",      "cgroup",     "cgroup2",  "mqueue",
    "debugfs", "tracefs",   "bpf",      "securityfs",  "pstore",     "configfs", "fusectl",
    "autofs",  "hugetlbfs", "efivarfs", "binfmt_misc", "rpc_pipefs", "nsfs",     "selinuxfs",
    "nfsd",    "resctrl",   "smackfs",  "cpuset",      "functionfs", "xenfs",
};

unsigned long flags_of(const char *options)
{
    unsigned long flags = 0;
    for (const mount_flag &each : mount_flags)
        if (wild_list(options, each.word))
            flags |= each.flag;
    return flags;
}

// Blanks, line ends and backslashes in a path are written as three octal digits.
std::string unescaped(const char *field)
{
    std::string text;
    for (; *field; field++) {
        if (*field == '\\' && std::strlen(field) > 3) {
            const std::string digits(field + 1, 3);
            text += static_cast<char>(std::strtol(digits.c_str(), nullptr, 8));
            field += 3;
        } else {
            text += *field;
        }
    }
    return text;
}

// Opens a path when it leads to the mount of that number.
Descriptor open_mount(const std::string &path, unsigned long number)
{
    Descriptor place(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return mount_number(place.get()) == number ? std::move(place) : Descriptor();
}

// number parent device root path options [tags ...] - type source options
Mount read_mount(char *line)
{
    constexpr int fields = 6;
    char *field[fields] = {};
    char *rest = line;
    for (char *&each : field)
        each = next_field(&rest);
    const char *word = next_field(&rest);
    while (word && std::strcmp(word, "-") != 0)
        word = next_field(&rest);
    const char *type = next_field(&rest);
    next_field(&rest);
    const char *own_options = next_field(&rest);
    if (!type)
        return {};
    const std::string path = unescaped(field[4]);
    const unsigned long flags = flags_of(field[5]);
    return {.path = path,
            .type = type,
            .flags = flags & ~static_cast<unsigned long>(MS_RDONLY),
            .is_read_only = ((flags | flags_of(own_options ? own_options : "")) & MS_RDONLY) != 0,
            .place = open_mount(path, std::strtoul(field[0], nullptr, 10))};
}

} // namespace

std::vector<Mount> read_mounts()
{
    std::vector<Mount> mounts;
    const Stream file(s_fopen("/proc/self/mountinfo", "r"));
    char *line = nullptr;
    size_t size = 0;
    while (file && ::getline(&line, &size, file.get()) > 0) {
        line[std::strcspn(line, "\n")] = '\0';
        mounts.push_back(read_mount(line));
        if (mounts.back().path.empty())
            mounts.pop_back();
    }
    std::free(line);
    std::ranges::stable_sort(mounts, {}, &Mount::path);
    return mounts;
}

bool is_pseudo(const Mount &mount)
{
    return is_below(mount.path, "/sys") || is_below(mount.path, "/proc") ||
           std::ranges::find(pseudo_types, mount.type) != std::end(pseudo_types);
}

std::uint64_t mount_number(int path)
{
    struct statx info {};
    return ::statx(path, "", AT_EMPTY_PATH, STATX_MNT_ID, &info) == 0 ? info.stx_mnt_id : 0;
}

Descriptor clone_mount(int path)
{
    constexpr unsigned flags = OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_EMPTY_PATH;
    Descriptor clone(static_cast<int>(::syscall(SYS_open_tree, path, "", flags)));
    if (!clone.is_open())
        clone =
            Descriptor(static_cast<int>(::syscall(SYS_open_tree, path, "", flags | AT_RECURSIVE)));
    return clone;
}

bool attach_mount(const Descriptor &clone, int place)
{
    return ::syscall(SYS_move_mount, clone.get(), "", place, "",
                     MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH) == 0;
}

bool make_read_only(const char *path)
{
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    return ::syscall(SYS_mount_setattr, AT_FDCWD, path, AT_RECURSIVE, &attributes,
                     sizeof attributes) == 0;
}

std::string descriptor_path(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}
