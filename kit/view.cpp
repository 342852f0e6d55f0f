#include "view.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "channel.h"
#include "foreign.h"
#include "names.h"
#include "renames.h"

namespace {

// --- Why there is no view --------------------------------------------------------------------

long number_in(const char *path, long otherwise)
{
    const Descriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    char text[32] = "";
    const ssize_t size = file.is_open() ? ::read(file.get(), text, sizeof text - 1) : 0;
    return size > 0 ? std::strtol(text, nullptr, 10) : otherwise;
}

// A switch of the system that keeps ordinary users from namespaces.
struct limit {
    const char *path;
    long refuses;
    const char *sentence;
};

constexpr limit limits[] = {
    {"/proc/sys/kernel/unprivileged_userns_clone", 0,
     "ordinary users may make no namespaces here; root can allow it: "
     "sysctl kernel.unprivileged_userns_clone=1"},
    {"/proc/sys/user/max_user_namespaces", 0,
     "no user namespaces may be made here; root can allow it: "
     "sysctl user.max_user_namespaces=10000"},
    {"/proc/sys/kernel/apparmor_restrict_unprivileged_userns", 1,
     "AppArmor keeps ordinary users from making namespaces; root can allow it: "
     "sysctl kernel.apparmor_restrict_unprivileged_userns=0"},
};

// One sentence: what is missing, and who can allow it.
std::string refusal(const std::string &what, int error)
{
    std::string missing = "no private view can be made: " + what;
    if (error != EPERM && error != EACCES && error != ENOSPC)
        return missing;
    for (const limit &each : limits)
        if (::geteuid() != 0 && number_in(each.path, -1) == each.refuses)
            return missing + "; " + each.sentence;
    return missing + "; in a container whoever starts it can allow it, for example with "
                     "--privileged";
}

// --- Namespaces ------------------------------------------------------------------------------

bool write_to(const char *path, const std::string &text)
{
    const Descriptor file(::open(path, O_WRONLY | O_CLOEXEC));
    return file.is_open() &&
           ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// The user keeps the own ids and has no others.
bool keep_ids(uid_t user, gid_t group)
{
    const std::string uid = std::to_string(user);
    const std::string gid = std::to_string(group);
    return write_to("/proc/self/setgroups", "deny") &&
           write_to("/proc/self/uid_map", uid + ' ' + uid + " 1") &&
           write_to("/proc/self/gid_map", gid + ' ' + gid + " 1");
}

// Forks into new namespaces.
pid_t fork_into(unsigned long namespaces)
{
    std::fflush(nullptr);
    return static_cast<pid_t>(::syscall(SYS_clone, namespaces | SIGCHLD, 0, 0, 0, 0));
}

// Takes the rights that a user namespace gives out of effect, and away for good with `all`: what is
// run has those that it has in reality. Root keeps its own.
void drop_rights(bool all)
{
    __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct rights[2] = {};
    if (::geteuid() == 0 || ::syscall(SYS_capget, &header, rights) != 0)
        return;
    for (__user_cap_data_struct &each : rights) {
        each.effective = 0;
        each.inheritable = 0;
        if (all)
            each.permitted = 0;
    }
    ::syscall(SYS_capset, &header, rights);
}

void raise_rights()
{
    __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct rights[2] = {};
    if (::syscall(SYS_capget, &header, rights) != 0)
        return;
    for (__user_cap_data_struct &each : rights)
        each.effective = each.permitted;
    ::syscall(SYS_capset, &header, rights);
}

// --- The first process of the view -----------------------------------------------------------

// Waits for a process to end: its exit status, or 128 and the number of the signal.
int end_of(pid_t process)
{
    constexpr int by_signal = 128;
    int waited = 0;
    ::waitpid(process, &waited, 0);
    return WIFSIGNALED(waited) ? by_signal + WTERMSIG(waited) : WEXITSTATUS(waited);
}

// Makes the view, lives as long as its maker, and takes the steps that it is told.
class Keeper {
  public:
    Keeper(Descriptor own_end, std::vector<ViewStep> own_steps, std::set<gid_t> own_groups)
        : channel(std::move(own_end)), steps(std::move(own_steps)), groups(std::move(own_groups))
    {
    }

    // Returns when its maker has ended, or when there can be no view.
    void run(bool in_user_namespace, uid_t user, gid_t group, const char *directory,
             const Scratch &scratch)
    {
        // Being the first process of its kind, it takes all others with it. Where it has to clean
        // up it sees its maker's end by itself.
        if (!scratch.is_made())
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        else if (!own_mounts.is_open() || ::unshare(CLONE_NEWNS) != 0)
            return fail("a second mount namespace is refused");
        if (in_user_namespace && !keep_ids(user, group))
            fail("the user's own ids cannot be kept");
        else if (make_view(in_user_namespace, directory, scratch))
            serve();
        clean_up(scratch);
    }

  private:
    bool make_view(bool in_user_namespace, const char *directory, const Scratch &scratch)
    {
        AskOwner ask;
        if (in_user_namespace)
            ask = [this](const Descriptor &path) { return ask_owner(path); };
        std::string reason;
        if (!tree.build(scratch, directory, ask))
            reason = tree.reason;
        else if (::chdir(directory) != 0)
            reason =
                "the working directory '" + std::string(directory) + "' cannot be entered again";
        else
            renames = std::make_unique<RenameHelper>(tree, ask, std::move(groups));
        if (!renames)
            fail(reason);
        return renames != nullptr;
    }

    void serve()
    {
        hand_over();
        drop_rights(false);
        Message message{.word = Word::ended};
        while (receive_message(channel, message)) {
            if (message.word == Word::take)
                take(static_cast<size_t>(message.number));
            else
                end_others();
            if (message.word == Word::ended)
                send_message(channel, message);
        }
    }

    // Nobody's when the maker has ended.
    Owner ask_owner(const Descriptor &path)
    {
        Message message{.word = Word::ask};
        message.descriptors.emplace_back(::fcntl(path.get(), F_DUPFD_CLOEXEC, 0));
        const bool answered = send_message(channel, message) && receive_message(channel, message);
        if (!answered || message.word != Word::ask)
            return {static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
        const auto both = static_cast<std::uint64_t>(message.number);
        return {static_cast<uid_t>(both >> 32U), static_cast<gid_t>(both)};
    }

    void fail(const std::string &what)
    {
        send_message(channel, {.word = Word::failure, .number = errno, .text = what});
    }

    void end_others()
    {
        // Only the first process of a namespace may do that: to others it means the whole machine.
        if (::getpid() != 1)
            return;
        ::kill(-1, SIGKILL);
        while (::waitpid(-1, nullptr, 0) > 0 || errno == EINTR)
            continue;
    }

    // For a maker that has ended before it could.
    void clean_up(const Scratch &scratch)
    {
        end_others();
        if (!scratch.is_made())
            return;
        // What something is mounted on cannot be removed where it is.
        raise_rights();
        ::setns(own_mounts.get(), CLONE_NEWNS);
        remove_tree(tree.scratch_parent, scratch.own_name().c_str());
    }

    void hand_over()
    {
        for (const std::string &sentence : tree.said)
            send_message(channel, {.word = Word::sentence, .text = sentence});
        for (Layer &layer : tree.layers) {
            Message message{.word = layer.is_frame ? Word::frame : Word::layer,
                            .number = layer.keeps_names ? 1 : 0,
                            .text = layer.path};
            message.descriptors.push_back(std::move(layer.lower));
            message.descriptors.push_back(std::move(layer.upper));
            message.descriptors.push_back(std::move(layer.merged));
            send_message(channel, message);
        }
        send_message(channel,
                     {.word = Word::ready, .number = static_cast<std::int64_t>(tree.notes)});
    }

    void take(size_t number)
    {
        const bool helps = tree.notes == Notes::user;
        if (helps && !renames->prepare())
            return fail("renames cannot be followed");
        const pid_t child = ::fork();
        if (child == 0) {
            raise_rights();
            if (helps && !renames->begin())
                ::_exit(errno);
            drop_rights(true);
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int status = steps[number]();
            std::fflush(nullptr);
            ::_exit(status);
        }
        if (child < 0)
            return fail("no process can be made");
        if (helps && !renames->take_over()) {
            errno = end_of(child);
            return fail("renames cannot be followed");
        }
        const int status = wait_for(child);
        for (const std::string &failure : renames->take_failures())
            send_message(channel, {.word = Word::broken, .text = failure});
        for (const std::string &path : renames->take_foreign())
            send_message(channel, {.word = Word::foreign, .text = path});
        if (status >= 0)
            send_message(channel, {.word = Word::ended, .number = status});
    }

    // The exit status; -1 when the maker has ended, whose end of the channel is closed then, and
    // when the child cannot be waited for.
    int wait_for(pid_t child)
    {
        const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
        if (!process.is_open()) {
            fail("the program's end cannot be waited for");
            ::kill(child, SIGKILL);
            end_of(child);
            return -1;
        }
        pollfd events[] = {
            {process.get(), POLLIN, 0}, {channel.get(), 0, 0}, {renames->descriptor(), POLLIN, 0}};
        while (true) {
            if (::poll(events, 3, -1) < 0)
                continue;
            if (events[1].revents != 0)
                return -1;
            if (events[0].revents != 0)
                break;
            if (events[2].revents & POLLIN)
                renames->answer();
            else if (events[2].revents != 0)
                events[2].fd = -1;
        }
        return end_of(child);
    }

    Descriptor channel;
    // From before the view was mounted.
    const Descriptor own_mounts{::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC)};
    std::vector<ViewStep> steps;
    std::set<gid_t> groups; // as they are outside
    PrivateTree tree;
    std::unique_ptr<RenameHelper> renames;
};

// --- What only the maker can tell ------------------------------------------------------------

// Nobody's where it cannot be told.
void tell_owner(const Descriptor &channel, const Message &question)
{
    struct stat info {};
    info.st_uid = static_cast<uid_t>(-1);
    info.st_gid = static_cast<gid_t>(-1);
    if (!question.descriptors.empty())
        ::fstat(question.descriptors[0].get(), &info);
    const std::uint64_t both = std::uint64_t{info.st_uid} << 32U | info.st_gid;
    send_message(channel, {.word = Word::ask, .number = static_cast<std::int64_t>(both)});
}

std::set<gid_t> own_groups()
{
    std::vector<gid_t> groups(NGROUPS_MAX);
    const int count = ::getgroups(NGROUPS_MAX, groups.data());
    return {groups.begin(), groups.begin() + (count > 0 ? count : 0)};
}

std::string foreign_sentence(const std::string &path)
{
    struct stat info {};
    std::string whose;
    if (::lstat(path.c_str(), &info) == 0)
        whose = " (" + owner_name(info.st_uid) + ':' + group_name(info.st_gid) + ')';
    return "'" + path + "'" + whose +
           " could not be changed in this view, although it may be on the machine: there a user "
           "changes only what has the own user and group; root can rehearse it, or give it that "
           "group";
}

} // namespace

std::unique_ptr<View> View::make(std::vector<ViewStep> steps, const char *scratch,
                                 std::string &reason)
{
    std::unique_ptr<View> view(new View);
    if (!view->start(std::move(steps), scratch, reason))
        view.reset();
    return view;
}

bool View::start(std::vector<ViewStep> steps, const char *directory_for_scratch,
                 std::string &reason)
{
    if (directory_for_scratch && !scratch.make(directory_for_scratch)) {
        reason = "the scratch directory '" + std::string(directory_for_scratch) +
                 "' cannot be used: " + std::strerror(errno);
        return false;
    }
    char directory[PATH_MAX];
    if (!::getcwd(directory, sizeof directory)) {
        reason = std::string("the working directory has no path: ") + std::strerror(errno);
        return false;
    }
    Descriptor ends[2];
    if (!make_channel(ends)) {
        reason = std::string("no private view can be made: ") + std::strerror(errno);
        return false;
    }
    constexpr unsigned long private_parts = CLONE_NEWNS | CLONE_NEWPID;
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    const std::set<gid_t> groups = own_groups();
    bool in_user_namespace = false;
    keeper = fork_into(private_parts);
    if (keeper < 0 && errno == EPERM) {
        in_user_namespace = true;
        keeper = fork_into(private_parts | CLONE_NEWUSER);
    }
    if (keeper < 0) {
        reason = refusal(std::string("namespaces are refused: ") + std::strerror(errno), errno);
        return false;
    }
    if (keeper == 0) {
        ends[0].close();
        Keeper(std::move(ends[1]), std::move(steps), groups)
            .run(in_user_namespace, user, group, directory, scratch);
        ::_exit(EXIT_FAILURE);
    }
    channel = std::move(ends[0]);
    ends[1].close();
    return receive_tree(reason);
}

bool View::receive_tree(std::string &reason)
{
    Message message{.word = Word::ended};
    while (receive_message(channel, message)) {
        switch (message.word) {
        case Word::ask:
            tell_owner(channel, message);
            break;
        case Word::sentence:
            sentences.push_back(message.text);
            break;
        case Word::layer:
        case Word::frame:
            if (message.descriptors.size() != 3)
                return false;
            parts.push_back({.path = message.text,
                             .lower = std::move(message.descriptors[0]),
                             .upper = std::move(message.descriptors[1]),
                             .merged = std::move(message.descriptors[2]),
                             .root = {},
                             .is_frame = message.word == Word::frame,
                             .keeps_names = message.number != 0});
            ::fstat(parts.back().merged.get(), &parts.back().root);
            break;
        case Word::failure:
            reason = refusal(message.text, static_cast<int>(message.number));
            return false;
        default:
            kept_notes = static_cast<Notes>(message.number);
            return message.word == Word::ready;
        }
    }
    reason = "the private view has ended unexpectedly";
    return false;
}

// Were we killed while we clean up, the keeper would go on. Where the keeper has been killed, its
// processes may write until it has been waited for.
View::~View()
{
    end();
    scratch.remove();
    if (keeper <= 0)
        return;
    ::kill(keeper, SIGKILL);
    while (::waitpid(keeper, nullptr, 0) < 0 && errno == EINTR)
        continue;
    scratch.remove();
}

int View::take(size_t step)
{
    std::fflush(nullptr);
    // What the terminal sends is for the program that is run.
    struct sigaction ignore {};
    struct sigaction interrupt {};
    struct sigaction quit {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGINT, &ignore, &interrupt);
    ::sigaction(SIGQUIT, &ignore, &quit);
    Message message{.word = Word::take, .number = static_cast<std::int64_t>(step)};
    int status = -1;
    bool waits = send_message(channel, message);
    while (waits && receive_message(channel, message)) {
        switch (message.word) {
        case Word::broken:
            breaks.push_back(message.text);
            break;
        case Word::foreign:
            breaks.push_back(foreign_sentence(message.text));
            break;
        case Word::ask:
            tell_owner(channel, message);
            break;
        case Word::failure:
            breaks.push_back(message.text + ": " + std::strerror(static_cast<int>(message.number)));
            waits = false;
            break;
        default:
            status = message.word == Word::ended ? static_cast<int>(message.number) : -1;
            waits = false;
            break;
        }
    }
    ::sigaction(SIGINT, &interrupt, nullptr);
    ::sigaction(SIGQUIT, &quit, nullptr);
    return status;
}

void View::end()
{
    Message message{.word = Word::ended};
    if (keeper > 0 && channel.is_open() && send_message(channel, message))
        receive_message(channel, message);
}
