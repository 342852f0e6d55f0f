#include "renames.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "calls.h"
#include "channel.h"
#include "directory.h"
#include "foreign.h"
#include "mounts.h"

// --- Catching renames ------------------------------------------------------------------------

namespace {

// The calls of one kind of programs that rename; -1: it has none such.
struct Calls {
    unsigned architecture;
    int rename;
    int renameat;
    int renameat2;
};

#ifndef SYS_rename
constexpr int SYS_rename = -1;
#endif
#ifndef SYS_renameat
constexpr int SYS_renameat = -1;
#endif

constexpr Calls known_calls[] = {
#if defined __x86_64__
    {AUDIT_ARCH_X86_64, SYS_rename, SYS_renameat, SYS_renameat2},
    {AUDIT_ARCH_I386, 38, 302, 353},
#elif defined __i386__
    {AUDIT_ARCH_I386, SYS_rename, SYS_renameat, SYS_renameat2},
#elif defined __aarch64__
    {AUDIT_ARCH_AARCH64, SYS_rename, SYS_renameat, SYS_renameat2},
#endif
};

// Lets every call pass but those that rename and, when they are watched, those that change.
std::vector<sock_filter> waiting_calls(bool with_touches)
{
    std::vector<sock_filter> filter;
    for (const Calls &calls : known_calls) {
        filter.push_back(load_word(offsetof(seccomp_data, arch)));
        filter.push_back(if_equal(calls.architecture, 0, 7));
        filter.push_back(load_word(offsetof(seccomp_data, nr)));
        for (const int call : {calls.rename, calls.renameat, calls.renameat2}) {
            filter.push_back(if_equal(static_cast<unsigned>(call), 0, 1));
            filter.push_back(decide(SECCOMP_RET_USER_NOTIF));
        }
    }
    if (with_touches)
        add_touches(filter);
    filter.push_back(decide(SECCOMP_RET_ALLOW));
    return filter;
}

} // namespace

bool RenameHelper::prepare()
{
    return make_channel(ends);
}

bool RenameHelper::begin()
{
    std::vector<sock_filter> filter = waiting_calls(watch.is_on());
    const sock_fprog program = {.len = static_cast<unsigned short>(filter.size()),
                                .filter = filter.data()};
    Message message{.word = Word::ready};
    message.descriptors.emplace_back(static_cast<int>(::syscall(
        SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program)));
    const bool done = message.descriptors[0].is_open() && send_message(ends[1], message);
    ends[0].close();
    ends[1].close();
    return done;
}

bool RenameHelper::take_over()
{
    ends[1].close();
    Message message{.word = Word::ended};
    const bool has_begun = receive_message(ends[0], message) && message.descriptors.size() == 1;
    calls = has_begun ? std::move(message.descriptors[0]) : Descriptor();
    ends[0].close();
    return has_begun;
}

// --- Reading a call --------------------------------------------------------------------------

// One rename, as the program asked for it.
struct RenameCall {
    CalledName from;
    CalledName to;
    unsigned flags = 0;
};

namespace {

RenameCall read_call(const seccomp_notif &notice)
{
    const auto process = static_cast<pid_t>(notice.pid);
    const auto &words = notice.data.args;
    const auto number = [&](size_t at) { return static_cast<int>(words[at]); };
    RenameCall call;
    for (const Calls &calls : known_calls) {
        if (calls.architecture != notice.data.arch)
            continue;
        if (notice.data.nr == calls.rename) {
            call.from = read_name(process, AT_FDCWD, words[0]);
            call.to = read_name(process, AT_FDCWD, words[1]);
        } else {
            call.from = read_name(process, number(0), words[1]);
            call.to = read_name(process, number(2), words[3]);
            call.flags = notice.data.nr == calls.renameat2 ? static_cast<unsigned>(words[4]) : 0;
        }
    }
    return call;
}

// --- Moving ----------------------------------------------------------------------------------

bool is_name(const std::string &leaf)
{
    return !leaf.empty() && leaf != "." && leaf != "..";
}

bool move(int from, const char *name, int to, const char *new_name);

bool move_content(int from, const char *name, int to, const char *new_name, mode_t mode)
{
    const Descriptor source(::openat(from, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    const Descriptor target(::openat(to, new_name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!source.is_open() || !target.is_open())
        return false;
    return copy_content(source, target) && ::fchmod(target.get(), mode) == 0;
}

// The old directory is left empty by moving each entry by itself.
bool move_directory(int from, const char *name, int to, const char *new_name, mode_t mode)
{
    constexpr mode_t open_to_us = 0700;
    if (::mkdirat(to, new_name, open_to_us) != 0)
        return false;
    const Descriptor target(::openat(to, new_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ::fchmodat(from, name, open_to_us, 0);
    const Directory source = open_list(from, name);
    std::vector<std::string> names;
    while (const dirent *entry = next_entry(source))
        names.emplace_back(entry->d_name);
    for (const std::string &each : names)
        if (!move(::dirfd(source.get()), each.c_str(), target.get(), each.c_str()))
            return false;
    return source && ::fchmod(target.get(), mode) == 0;
}

bool move_link(int from, const char *name, int to, const char *new_name)
{
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(from, name, target, sizeof target - 1);
    target[length < 0 ? 0 : length] = '\0';
    return ::symlinkat(target, to, new_name) == 0;
}

// Whose group it is in reality goes along.
void copy_note(int from, const char *name, int to, const char *new_name)
{
    const std::string target = descriptor_path(to) + '/' + new_name;
    if (const auto group = noted(descriptor_path(from) + '/' + name, group_note))
        note_owner(target, {.user = ::geteuid(), .group = *group});
}

// Makes the entry anew in the other place and removes the old one.
bool move(int from, const char *name, int to, const char *new_name)
{
    struct stat info {};
    if (::renameat(from, name, to, new_name) == 0)
        return true;
    if (errno != EXDEV || ::fstatat(from, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    const mode_t mode = info.st_mode & 07777;
    if (info.st_uid != ::geteuid()) {
        errno = EOVERFLOW;
        return false;
    }
    const bool made = S_ISDIR(info.st_mode)   ? move_directory(from, name, to, new_name, mode)
                      : S_ISREG(info.st_mode) ? move_content(from, name, to, new_name, mode)
                      : S_ISLNK(info.st_mode) ? move_link(from, name, to, new_name)
                                              : ::mknodat(to, new_name, info.st_mode, 0) == 0;
    if (made && !S_ISLNK(info.st_mode))
        copy_note(from, name, to, new_name);
    const timespec times[] = {info.st_atim, info.st_mtim};
    return made && ::utimensat(to, new_name, times, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::unlinkat(from, name, S_ISDIR(info.st_mode) ? AT_REMOVEDIR : 0) == 0;
}

bool look(const CalledName &name, struct stat &info)
{
    return ::fstatat(name.parent.get(), name.leaf.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

// Why the machine would not rename; 0: it may. The system tells that mounts differ before all that.
int refusal(const RenameCall &call)
{
    struct stat source {};
    struct stat target {};
    if (!look(call.from, source))
        return errno;
    const bool has_target = look(call.to, target);
    if (has_target && (call.flags & RENAME_NOREPLACE))
        return EEXIST;
    if (!has_target && (call.flags & RENAME_EXCHANGE))
        return ENOENT;
    for (const CalledName *name : {&call.from, &call.to})
        if (::faccessat(name->parent.get(), ".", W_OK | X_OK, 0) != 0)
            return errno;
    if (!has_target || (call.flags & RENAME_EXCHANGE))
        return 0;
    if (S_ISDIR(source.st_mode) != S_ISDIR(target.st_mode))
        return S_ISDIR(target.st_mode) ? EISDIR : ENOTDIR;
    const Directory entries = open_list(call.to.parent.get(), call.to.leaf.c_str());
    return next_entry(entries) ? ENOTEMPTY : 0;
}

// What is moved gets a name that nobody uses until it is complete: only then does it take the place
// of what stands there, as in a rename.
bool move_to_place(const RenameCall &call)
{
    const int to = call.to.parent.get();
    const std::string aside = ".product-kit." + std::to_string(::getpid()) + ".moving";
    struct stat target {};
    if (look(call.to, target) && S_ISDIR(target.st_mode) &&
        ::unlinkat(to, call.to.leaf.c_str(), AT_REMOVEDIR) != 0)
        return false;
    return move(call.from.parent.get(), call.from.leaf.c_str(), to, aside.c_str()) &&
           ::renameat(to, aside.c_str(), to, call.to.leaf.c_str()) == 0;
}

} // namespace

// --- Answering -------------------------------------------------------------------------------

RenameHelper::RenameHelper(const PrivateTree &tree, AskOwner ask, std::set<gid_t> groups)
    : watch(std::move(ask), std::move(groups), tree.held)
{
    struct stat info {};
    for (const Layer &layer : tree.layers)
        if (::fstat(layer.lower.get(), &info) == 0)
            origins[mount_number(layer.merged.get())] = info.st_dev;
}

std::vector<std::string> RenameHelper::take_failures()
{
    std::vector<std::string> all = std::exchange(failures, {});
    std::ranges::move(watch.take_failures(), std::back_inserter(all));
    return all;
}

bool RenameHelper::is_one_device(const RenameCall &call) const
{
    const auto from = origins.find(mount_number(call.from.parent.get()));
    const auto to = origins.find(mount_number(call.to.parent.get()));
    return from != origins.end() && to != origins.end() && from->second == to->second;
}

// 0, or the reason why the machine would not rename.
int RenameHelper::rename(const RenameCall &call)
{
    if (const int error = watch.judge_rename(call.from, call.to))
        return error;
    if (::syscall(SYS_renameat2, call.from.parent.get(), call.from.leaf.c_str(),
                  call.to.parent.get(), call.to.leaf.c_str(), call.flags) == 0)
        return 0;
    const int refused = errno;
    const bool is_apart = refused == EXDEV && is_one_device(call);
    const bool is_held = refused == EBUSY && (watch.is_held(call.from) || watch.is_held(call.to));
    if (!is_apart && !is_held)
        return refused;
    if (const int reason = refusal(call))
        return reason;
    errno = refused;
    if (is_apart && !(call.flags & RENAME_EXCHANGE) && move_to_place(call))
        return 0;
    const int reason = errno;
    failures.push_back(
        "'" + call.from.leaf + "' could not be renamed to '" + call.to.leaf +
        "' in this view, although it may be on the machine: " + std::strerror(reason));
    return reason;
}

void RenameHelper::answer()
{
    seccomp_notif notice{};
    if (::ioctl(calls.get(), SECCOMP_IOCTL_NOTIF_RECV, &notice) != 0)
        return;
    seccomp_notif_resp response{};
    response.id = notice.id;
    if (!ForeignWatch::is_touch(notice))
        answer_rename(notice, response);
    else if (const int error = watch.judge(notice))
        response.error = -error;
    else
        response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    ::ioctl(calls.get(), SECCOMP_IOCTL_NOTIF_SEND, &response);
}

void RenameHelper::answer_rename(const seccomp_notif &notice, seccomp_notif_resp &response)
{
    const RenameCall call = read_call(notice);
    if (!call.from.parent.is_open() || !call.to.parent.is_open() || !is_name(call.from.leaf) ||
        !is_name(call.to.leaf))
        response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    else
        response.error = -rename(call);
}
