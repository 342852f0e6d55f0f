#include "foreign.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "directory.h"
#include "mounts.h"
#include "names.h"

// --- Whose it is -----------------------------------------------------------------------------

namespace {

void put_note(const std::string &path, const char *note, id_t id)
{
    const std::string text = std::to_string(id);
    ::setxattr(path.c_str(), note, text.data(), text.size(), 0);
}

template <typename Get>
std::optional<id_t> read_note(Get get, const std::string &path, const char *note)
{
    char text[16] = "";
    if (get(path.c_str(), note, text, sizeof text - 1) <= 0)
        return {};
    return static_cast<id_t>(std::strtoul(text, nullptr, 10));
}

} // namespace

void note_owner(const std::string &path, const Owner &real)
{
    if (real.user != ::geteuid())
        put_note(path, owner_note, real.user);
    if (real.group != ::getegid())
        put_note(path, group_note, real.group);
}

std::optional<id_t> noted(const std::string &path, const char *note)
{
    return read_note(::lgetxattr, path, note);
}

std::optional<id_t> noted(const Descriptor &opened, const char *note)
{
    // Beyond the link that the system shows for an open path.
    return read_note(::getxattr, descriptor_path(opened.get()), note);
}

// --- Making anew -----------------------------------------------------------------------------

bool copy_content(const Descriptor &source, const Descriptor &target)
{
    constexpr size_t at_once = 1U << 20U;
    ssize_t sent = 0;
    while ((sent = ::sendfile(target.get(), source.get(), nullptr, at_once)) > 0)
        continue;
    return sent == 0;
}

namespace {

// A product's folder is well below; of more the rest is left as it is.
constexpr int most_entries = 20000;
constexpr off_t most_bytes = off_t{256} << 20;

struct Room {
    int entries = most_entries;
    off_t bytes = most_bytes;
};

void finish(int made, const struct stat &info, const Owner &real)
{
    note_owner(descriptor_path(made), real);
    ::fchmod(made, info.st_mode & 07777);
    const timespec times[] = {info.st_atim, info.st_mtim};
    ::futimens(made, times);
}

// Extended attributes, as finer rights, would be lost: such a file stays as it is.
void make_file(int lower, int upper, const char *name, const struct stat &info, const Owner &real)
{
    const Descriptor source(::openat(lower, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!source.is_open() || ::flistxattr(source.get(), nullptr, 0) > 0)
        return;
    const Descriptor target(::openat(upper, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (target.is_open() && copy_content(source, target))
        finish(target.get(), info, real);
    else if (target.is_open())
        ::unlinkat(upper, name, 0);
}

void make_all(int lower, int upper, const AskOwner &ask, Room &room)
{
    const Directory entries = open_list(lower, ".");
    while (const dirent *entry = next_entry(entries)) {
        const Descriptor original(::openat(lower, entry->d_name, look_only));
        struct stat info {};
        if (--room.entries < 0)
            return;
        if (::fstat(original.get(), &info) != 0)
            continue;
        const Owner real = ask(original);
        if (real.user != ::geteuid())
            continue;
        if (S_ISREG(info.st_mode) && real.group != ::getegid() && info.st_size <= room.bytes) {
            room.bytes -= info.st_size;
            make_file(lower, upper, entry->d_name, info, real);
        }
        if (!S_ISDIR(info.st_mode) || ::mkdirat(upper, entry->d_name, 0700) != 0)
            continue;
        const Descriptor made(
            ::openat(upper, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        make_all(original.get(), made.get(), ask, room);
        finish(made.get(), info, real);
    }
}

bool find_foreign(int directory, const AskOwner &ask, int &left)
{
    const Directory entries = open_list(directory, ".");
    while (const dirent *entry = next_entry(entries)) {
        const Descriptor original(::openat(directory, entry->d_name, look_only));
        const Owner real = ask(original);
        if (--left < 0)
            return false;
        if (real.user != ::geteuid())
            continue;
        if (real.group != ::getegid() ||
            (entry->d_type == DT_DIR && find_foreign(original.get(), ask, left)))
            return true;
    }
    return false;
}

} // namespace

void make_anew(const Descriptor &lower, const Descriptor &upper, const AskOwner &ask)
{
    Room room;
    make_all(lower.get(), upper.get(), ask, room);
}

bool has_foreign_groups(const Descriptor &directory, const AskOwner &ask)
{
    int left = most_entries;
    return find_foreign(directory.get(), ask, left);
}

// --- Which calls -----------------------------------------------------------------------------

// What of a call's path the overlay has to take up.
enum class Touch {
    made,    // the directory in which an entry is made
    removed, // the directory from which one is removed
    opened,  // either, by the flags
    written, // the entry
    timed,   // the entry, which gets no other face
    owned,   // the entry, by its owner only
};

struct TouchingCall {
    long call;
    Touch what;
    int directory; // the argument that is a descriptor; none: the working directory
    int path;      // the argument that is a path; none: the descriptor is meant itself
    int word;      // the argument with the flags of opening, or with a new group, which is behind
                   // the new owner; none: it has none
};

namespace {

constexpr int none = -1;

constexpr TouchingCall touches[] = {
    {SYS_openat, Touch::opened, 0, 1, 2},
    {SYS_openat2, Touch::opened, 0, 1, none}, // the flags are in the caller's memory
    {SYS_mkdirat, Touch::made, 0, 1, none},
    {SYS_mknodat, Touch::made, 0, 1, none},
    {SYS_symlinkat, Touch::made, 1, 2, none},
    {SYS_linkat, Touch::made, 2, 3, none},
    {SYS_linkat, Touch::timed, 0, 1, none},
    {SYS_unlinkat, Touch::removed, 0, 1, none},
    {SYS_fchmod, Touch::owned, 0, none, none},
    {SYS_fchmodat, Touch::owned, 0, 1, none},
    {SYS_truncate, Touch::written, none, 0, none},
    {SYS_utimensat, Touch::timed, 0, 1, none},
    {SYS_fchown, Touch::owned, 0, none, 2},
    {SYS_fchownat, Touch::owned, 0, 1, 3},
#ifdef SYS_open
    {SYS_open, Touch::opened, none, 0, 1},
    {SYS_creat, Touch::opened, none, 0, none},
    {SYS_mkdir, Touch::made, none, 0, none},
    {SYS_mknod, Touch::made, none, 0, none},
    {SYS_symlink, Touch::made, none, 1, none},
    {SYS_link, Touch::made, none, 1, none},
    {SYS_link, Touch::timed, none, 0, none},
    {SYS_unlink, Touch::removed, none, 0, none},
    {SYS_rmdir, Touch::removed, none, 0, none},
    {SYS_chmod, Touch::owned, none, 0, none},
    {SYS_utime, Touch::timed, none, 0, none},
    {SYS_utimes, Touch::timed, none, 0, none},
    {SYS_chown, Touch::owned, none, 0, 2},
    {SYS_lchown, Touch::owned, none, 0, 2},
#endif
};

constexpr unsigned writing = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;

// Of openat2(2) they are at the beginning of a structure; creat(2) has none.
std::uint64_t flags_of(const TouchingCall &call, const seccomp_notif &notice)
{
    if (call.word != none)
        return notice.data.args[call.word];
    std::uint64_t flags = O_CREAT | O_TRUNC | O_WRONLY;
    if (call.call != SYS_openat2)
        return flags;
    read_memory(static_cast<pid_t>(notice.pid), notice.data.args[2], &flags, sizeof flags);
    return flags;
}

// Whether the call means what a link leads to, not the link.
bool follows(const seccomp_notif &notice)
{
    const auto has_flag = [&](int at, unsigned flag) { return (notice.data.args[at] & flag) != 0; };
    switch (notice.data.nr) {
    case SYS_linkat:
        return has_flag(4, AT_SYMLINK_FOLLOW);
    case SYS_utimensat:
        return !has_flag(3, AT_SYMLINK_NOFOLLOW);
    case SYS_fchownat:
        return !has_flag(4, AT_SYMLINK_NOFOLLOW);
#ifdef SYS_open
    case SYS_link:
    case SYS_lchown:
        return false;
#endif
    default:
        return true;
    }
}

bool removes_directory(const seccomp_notif &notice)
{
#ifdef SYS_open
    if (notice.data.nr == SYS_rmdir)
        return true;
#endif
    return notice.data.nr == SYS_unlinkat && (notice.data.args[2] & AT_REMOVEDIR) != 0;
}

// Nothing when the call changes the mode.
std::optional<Owner> given_by(const TouchingCall &call, const seccomp_notif &notice)
{
    if (call.word == none)
        return {};
    return Owner{.user = static_cast<uid_t>(notice.data.args[call.word - 1]),
                 .group = static_cast<gid_t>(notice.data.args[call.word])};
}

} // namespace

// Opening for reading, which is most of what programs do, passes without an answer.
void add_touches(std::vector<sock_filter> &filter)
{
    filter.push_back(load_word(offsetof(seccomp_data, arch)));
    filter.push_back(if_equal(own_architecture, 1, 0));
    filter.push_back(decide(SECCOMP_RET_ALLOW));
    filter.push_back(load_word(offsetof(seccomp_data, nr)));
    for (const TouchingCall &each : touches) {
        const auto call = static_cast<unsigned>(each.call);
        if (each.what == Touch::opened && each.word != none) {
            const size_t flags = offsetof(seccomp_data, args) +
                                 static_cast<size_t>(each.word) * sizeof(std::uint64_t);
            filter.push_back(if_equal(call, 0, 4));
            filter.push_back(load_word(flags));
            filter.push_back(if_any(writing, 1, 0));
            filter.push_back(decide(SECCOMP_RET_ALLOW));
        } else {
            filter.push_back(if_equal(call, 0, 1));
        }
        filter.push_back(decide(SECCOMP_RET_USER_NOTIF));
    }
}

// --- Answering -------------------------------------------------------------------------------

namespace {

std::string path_of(const Descriptor &opened)
{
    char path[PATH_MAX] = "";
    const ssize_t size = ::readlink(descriptor_path(opened.get()).c_str(), path, sizeof path - 1);
    return size > 0 ? path : "";
}

// A change that changes nothing: the times that there are, or opening without writing. False with
// errno set.
bool try_change(const Descriptor &opened, const struct stat &info)
{
    const std::string path = descriptor_path(opened.get());
    const timespec times[] = {info.st_atim, info.st_mtim};
    if (::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0)
        return true;
    if (errno == EOVERFLOW)
        return false;
    if (S_ISDIR(info.st_mode))
        return ::utimensat(AT_FDCWD, path.c_str(), nullptr, 0) == 0;
    return S_ISREG(info.st_mode) &&
           Descriptor(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)).is_open();
}

// What is meant itself has no name.
Descriptor open_entry(const CalledName &name, bool follows)
{
    if (name.leaf.empty())
        return Descriptor(::fcntl(name.parent.get(), F_DUPFD_CLOEXEC, 0));
    return Descriptor(::openat(name.parent.get(), name.leaf.c_str(),
                               O_PATH | O_CLOEXEC | (follows ? 0 : O_NOFOLLOW)));
}

bool exists(const CalledName &name)
{
    return ::faccessat(name.parent.get(), name.leaf.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace

bool ForeignWatch::is_touch(const seccomp_notif &notice)
{
    for (const TouchingCall &each : touches)
        if (notice.data.arch == own_architecture && notice.data.nr == each.call)
            return true;
    return false;
}

// Links are not looked at: nobody changes them but by making them anew.
void ForeignWatch::take_up(const Descriptor &opened)
{
    struct stat info {};
    errno = 0;
    if (::fstat(opened.get(), &info) == 0 && !S_ISLNK(info.st_mode) && !try_change(opened, info) &&
        errno == EOVERFLOW)
        found.insert(path_of(opened));
}

void ForeignWatch::take_up_written(const Descriptor &opened)
{
    if (::access(descriptor_path(opened.get()).c_str(), W_OK) == 0)
        take_up(opened);
}

void ForeignWatch::judge_opened(const CalledName &name, std::uint64_t flags)
{
    if ((flags & writing) == 0)
        return;
    const bool is_there = exists(name);
    if (is_there && (flags & O_EXCL) == 0)
        take_up_written(open_entry(name, (flags & O_NOFOLLOW) == 0));
    else if (!is_there && (flags & O_CREAT) != 0)
        take_up_written(name.parent);
}

bool ForeignWatch::is_held(const CalledName &name) const
{
    const std::uint64_t number = mount_number(open_entry(name, false).get());
    return held.contains(number) && number != mount_number(name.parent.get()) &&
           ::access(descriptor_path(name.parent.get()).c_str(), W_OK) == 0;
}

// The system says that it is busy before it looks whether anything is in it.
int ForeignWatch::judge_held(const CalledName &name)
{
    if (!is_held(name))
        return 0;
    const Descriptor entry = open_entry(name, false);
    if (next_entry(open_list(entry.get(), ".")))
        return ENOTEMPTY;
    failures.push_back("'" + path_of(entry) +
                       "' could not be removed in this view, although it may be on the machine: it "
                       "has an overlay of its own");
    return EBUSY;
}

// In a sticky directory of somebody else's only one's own goes away.
int ForeignWatch::judge_removal(const CalledName &name)
{
    struct stat info {};
    const Descriptor entry = open_entry(name, false);
    if (!entry.is_open() || ::fstat(name.parent.get(), &info) != 0)
        return 0;
    if ((info.st_mode & S_ISVTX) && noted(name.parent, owner_note) &&
        ask_owner(entry).user != ::geteuid())
        return EPERM;
    take_up_written(name.parent);
    return 0;
}

int ForeignWatch::judge_rename(const CalledName &from, const CalledName &to)
{
    if (!is_on())
        return 0;
    int error = judge_removal(from);
    if (error == 0 && exists(to))
        error = judge_removal(to);
    if (error != 0)
        return error;
    take_up_written(to.parent);
    if (::faccessat(from.parent.get(), ".", W_OK, 0) == 0)
        take_up(open_entry(from, false));
    return 0;
}

// True for an owner and group that the user may give to an own file; -1 leaves what there is.
bool ForeignWatch::may_give(const Owner &given) const
{
    constexpr auto unchanged = static_cast<id_t>(-1);
    return (given.user == unchanged || given.user == ::geteuid()) &&
           (given.group == unchanged || given.group == ::getegid() || groups.contains(given.group));
}

// Whose the entry is in reality decides, and what a program gives it counts from then on. What the
// user may not give the system would call invalid, as the namespace has no such number.
int ForeignWatch::judge_owned(const Descriptor &entry, const std::optional<Owner> &given)
{
    if (!entry.is_open())
        return 0;
    const bool is_others = noted(entry, owner_note) || ask_owner(entry).user != ::geteuid();
    if (is_others || (given && !may_give(*given)))
        return EPERM;
    take_up(entry);
    if (!given)
        return 0;
    const bool is_own = given->group == ::getegid();
    const bool fails =
        is_own ? noted(entry, group_note) &&
                     ::removexattr(descriptor_path(entry.get()).c_str(), group_note) != 0
               : groups.contains(given->group);
    if (fails)
        failures.push_back("'" + path_of(entry) + "' could not be given the group " +
                           group_name(given->group) +
                           " in this view, although it may be on the machine");
    return 0;
}

int ForeignWatch::judge(const seccomp_notif &notice)
{
    int error = 0;
    for (const TouchingCall &each : touches)
        if (each.call == notice.data.nr && error == 0)
            error = judge_touch(each, notice);
    return error;
}

int ForeignWatch::judge_touch(const TouchingCall &call, const seccomp_notif &notice)
{
    const auto process = static_cast<pid_t>(notice.pid);
    const auto argument = [&](int at) { return at == none ? 0 : notice.data.args[at]; };
    const int start = call.directory == none ? AT_FDCWD //
                                             : static_cast<int>(argument(call.directory));
    const bool is_opened = argument(call.path) == 0;
    const CalledName name = is_opened ? CalledName{opened_by(process, start), ""}
                                      : read_name(process, start, argument(call.path));
    if (!name.parent.is_open() || (name.leaf.empty() && !is_opened))
        return 0;
    int error = 0;
    switch (call.what) {
    case Touch::made:
        if (!exists(name))
            take_up_written(name.parent);
        return 0;
    case Touch::removed:
        error = judge_removal(name);
        return error == 0 && removes_directory(notice) ? judge_held(name) : error;
    case Touch::opened:
        judge_opened(name, flags_of(call, notice));
        return 0;
    case Touch::written:
        take_up_written(open_entry(name, true));
        return 0;
    case Touch::timed:
        take_up(open_entry(name, follows(notice)));
        return 0;
    case Touch::owned:
        return judge_owned(open_entry(name, follows(notice)), given_by(call, notice));
    }
    return 0;
}
