#include "tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "directory.h"
#include "mounts.h"
#include "scratch.h"

namespace {

Descriptor open_directory(int directory, const char *name)
{
    return Descriptor(::openat(directory, name, look_only | O_DIRECTORY));
}

Descriptor again(const Descriptor &opened)
{
    return Descriptor(::fcntl(opened.get(), F_DUPFD_CLOEXEC, 0));
}

// What a user may do is asked without the rights that a namespace gives; the machine's own files
// are behind read-only mounts here, which is told only where nothing else is in the way.
bool may(const Descriptor &directory, int what)
{
    return ::access(descriptor_path(directory.get()).c_str(), what) == 0 || errno == EROFS;
}

// The bits of a mode that let somebody do what the user may not.
mode_t refused_bits(const Descriptor &directory)
{
    constexpr mode_t for_everybody = 0111;
    mode_t bits = 0;
    for (const int what : {R_OK, W_OK, X_OK})
        if (!may(directory, what))
            bits |= for_everybody * static_cast<mode_t>(what);
    return bits;
}

Notes possible_notes(const Descriptor &room)
{
    const std::string path = descriptor_path(room.get());
    if (::setxattr(path.c_str(), "trusted.overlay.probe", "y", 1, 0) == 0)
        return Notes::trusted;
    return ::setxattr(path.c_str(), "user.overlay.probe", "y", 1, 0) == 0 ? Notes::user
                                                                          : Notes::none;
}

// The first that the kernel and the file system below can do is taken.
constexpr const char *trusted_options[] = {
    ",redirect_dir=on,metacopy=on,index=on",
    ",redirect_dir=on",
    nullptr,
};
constexpr const char *user_options[] = {",userxattr", nullptr};

// Mounts an overlay that takes up changes; false with errno set.
bool mount_overlay(const Descriptor &lower, const Descriptor &upper, const Descriptor &work,
                   const Descriptor &place, unsigned long flags, Notes notes)
{
    const std::string directories = "lowerdir=" + descriptor_path(lower.get()) +
                                    ",upperdir=" + descriptor_path(upper.get()) +
                                    ",workdir=" + descriptor_path(work.get());
    const char *const *options = notes == Notes::trusted ? trusted_options : user_options;
    for (; *options; options++)
        if (::mount("overlay", descriptor_path(place.get()).c_str(), "overlay", flags,
                    (directories + *options).c_str()) == 0)
            return true;
    return false;
}

constexpr const char *no_overlay = "there is no overlay file system to be had";

// By the error of a mount.
bool is_overlay_missing()
{
    return errno == ENODEV || errno == EPERM;
}

// How far from the root shared directories are looked for.
constexpr int shared_depth = 3;

// Where our own file system is put while the tree is built: it must not cover anybody's files.
constexpr const char *stages[] = {"/proc/tty", "/proc/driver", "/proc/fs"};

bool mount_stage(Descriptor &stage)
{
    for (const char *place : stages) {
        if (::mount("product-kit", place, "tmpfs", 0, "mode=0755") == 0) {
            stage = open_directory(AT_FDCWD, place);
            return stage.is_open();
        }
    }
    return false;
}

} // namespace

bool PrivateTree::fail(const std::string &what)
{
    reason = what + ": " + std::strerror(errno);
    return false;
}

// Gives a directory of ours the face of the machine's. Only root can give it the owner as well:
// others must not be let in because it is their own.
void PrivateTree::resemble(const Descriptor &ours, const Descriptor &original) const
{
    struct stat info {};
    if (::fstat(original.get(), &info) != 0)
        return;
    const std::string path = descriptor_path(ours.get());
    if (ask_owner)
        note_owner(path, ask_owner(original));
    static_cast<void>(!::chown(path.c_str(), info.st_uid, info.st_gid));
    ::chmod(path.c_str(), info.st_mode & 07777 & ~refused_bits(original));
    const timespec times[] = {info.st_atim, info.st_mtim};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

bool PrivateTree::prepare(const Scratch &scratch)
{
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return fail("the root directory is no mount of its own, as in a chroot");
    Descriptor own_room;
    if (scratch.is_made()) {
        own_room = clone_mount(scratch.open_parent().get());
        if (!own_room.is_open())
            return fail("the scratch directory cannot be used");
    }
    mounts = read_mounts();
    if (mounts.empty())
        return fail("'/proc/self/mountinfo' does not tell the mounts");
    if (!make_read_only("/"))
        return fail("mounts cannot be made read-only");
    if (!mount_stage(stage))
        return fail("no file system can be mounted");
    ::mkdirat(stage.get(), "top", 0755);
    ::mkdirat(stage.get(), "room", 0700);
    room = open_directory(stage.get(), "room");
    if (own_room.is_open()) {
        if (!attach_mount(own_room, room.get()))
            return fail("the scratch directory cannot be used");
        scratch_parent =
            Descriptor(::openat(stage.get(), "room", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        room = open_directory(scratch_parent.get(), scratch.own_name().c_str());
    }
    notes = possible_notes(room);
    if (notes == Notes::none)
        return fail("the scratch file system keeps no extended attributes "
                    "(in memory it does since Linux 6.6; '--scratch DIRECTORY' takes another)");
    return !scratch.is_made() || try_room();
}

// Whether the scratch directory's file system can take up changes is told by the system only where
// an overlay is wanted.
bool PrivateTree::try_room()
{
    const Descriptor top = open_directory(stage.get(), "top");
    if (!mount_overlay(top, make_numbered("trial"), make_numbered("trial-work"), top, 0, notes))
        return fail(is_overlay_missing()
                        ? no_overlay
                        : "the scratch directory lies on a file system that can take up no "
                          "changes, as the root of a container");
    return ::umount2(descriptor_path(place_of("/").get()).c_str(), MNT_DETACH) == 0 ||
           fail("the scratch directory cannot be tried");
}

bool PrivateTree::build(const Scratch &scratch, const std::string &working_directory, AskOwner ask)
{
    working = working_directory;
    ask_owner = std::move(ask);
    if (!prepare(scratch))
        return false;
    if (mounts.front().path != "/") {
        errno = EINVAL;
        return fail("the root directory is no mount of its own, as in a chroot");
    }
    for (const Mount &mount : mounts)
        if (mount.place.is_open() && !cover(mount))
            return false;
    if (ask_owner)
        hold_shared("/", shared_depth);
    if (layers.empty()) {
        errno = EROFS;
        return fail("there is nothing that can be written");
    }
    return enter();
}

// --- Each mount ------------------------------------------------------------------------------

bool PrivateTree::has_mounts_below(const std::string &path) const
{
    return std::ranges::any_of(mounts, [&](const Mount &mount) {
        return mount.path != path && is_below(mount.path, path);
    });
}

// Opens a path in the new tree as far as it stands.
Descriptor PrivateTree::place_of(const std::string &path) const
{
    open_how how{};
    how.flags = look_only;
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_SYMLINKS;
    const Descriptor root = open_directory(stage.get(), "top");
    return Descriptor(
        static_cast<int>(::syscall(SYS_openat2, root.get(), path.c_str(), &how, sizeof how)));
}

bool PrivateTree::cover(const Mount &mount)
{
    const Descriptor place = place_of(mount.path);
    struct stat info {};
    if (!place.is_open() || ::fstat(mount.place.get(), &info) != 0)
        return true;
    if (mount.is_read_only)
        return carry(mount.place, place, mount.path);
    if (is_pseudo(mount)) {
        if (!carry(mount.place, place, mount.path))
            return false;
        // Our processes have numbers of their own. Where the system hides parts of the one that
        // there is, it gives no new one, and the old one still shows the right directories.
        if (mount.type == "proc")
            ::mount("proc", descriptor_path(place_of(mount.path).get()).c_str(), "proc",
                    MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY, nullptr);
        return true;
    }
    if (S_ISDIR(info.st_mode))
        return hold(mount, mount.path, mount.place, place);
    said.push_back("'" + mount.path + "' is a mounted file: it is read-only in this view");
    return carry(mount.place, place, mount.path);
}

bool PrivateTree::carry(const Descriptor &original, const Descriptor &place,
                        const std::string &path)
{
    const Descriptor clone = clone_mount(original.get());
    return (clone.is_open() && attach_mount(clone, place.get())) ||
           fail("'" + path + "' cannot be carried along");
}

bool PrivateTree::hold(const Mount &mount, const std::string &path, const Descriptor &lower,
                       const Descriptor &place)
{
    if (overlay(mount, path, lower, place))
        return true;
    if (is_overlay_missing())
        return fail(no_overlay);
    if (has_mounts_below(path))
        return frame(mount, path, lower, place);
    said.push_back("'" + path + "' (" + mount.type + ") is read-only in this view");
    return carry(lower, place, path);
}

// --- Overlays --------------------------------------------------------------------------------

// A new directory of ours for the next layer.
Descriptor PrivateTree::make_numbered(const char *kind)
{
    const std::string name = kind + std::to_string(layers.size());
    ::mkdirat(room.get(), name.c_str(), 0700);
    return open_directory(room.get(), name.c_str());
}

bool PrivateTree::overlay(const Mount &mount, const std::string &path, const Descriptor &lower,
                          const Descriptor &place)
{
    Layer layer = {.path = path,
                   .lower = again(lower),
                   .upper = make_numbered("upper"),
                   .merged = {},
                   .root = {},
                   .is_frame = false,
                   .keeps_names = false};
    const Descriptor work = make_numbered("work");
    resemble(layer.upper, lower);
    if (ask_owner && path == working)
        make_anew(lower, layer.upper, ask_owner);
    if (!mount_overlay(layer.lower, layer.upper, work, place, mount.flags, notes))
        return false;
    layer.merged = place_of(path);
    if (::fstat(layer.merged.get(), &layer.root) != 0)
        return false;
    // Asked for or not, the system makes an index only where the file system below allows one.
    layer.keeps_names = ::faccessat(work.get(), "index", F_OK, 0) == 0;
    if (path != mount.path)
        held.insert(mount_number(layer.merged.get()));
    layers.push_back(std::move(layer));
    return true;
}

// --- Frames ----------------------------------------------------------------------------------

// In a user namespace the system shows nobody what lies below a mount of its own, so it refuses an
// overlay over a directory with such mounts in it. Then the directory is made anew, and each of its
// entries gets an overlay. What is no directory cannot have one, and is read-only.
bool PrivateTree::frame(const Mount &mount, const std::string &path, const Descriptor &lower,
                        const Descriptor &place)
{
    Layer layer = {.path = path,
                   .lower = again(lower),
                   .upper = make_numbered("frame"),
                   .merged = {},
                   .root = {},
                   .is_frame = true,
                   .keeps_names = false};
    if (!attach_mount(clone_mount(layer.upper.get()), place.get()))
        return fail("'" + path + "' cannot be laid out anew");
    layer.merged = place_of(path);
    if (may(lower, W_OK) && !mount.is_read_only)
        said.push_back("'" + path +
                       "' has mounts in it: its own files are read-only in this "
                       "view, and its directories cannot be renamed");
    if (path != mount.path)
        held.insert(mount_number(layer.merged.get()));
    const Descriptor inside = place_of(path);
    const Directory entries = open_list(lower.get(), ".");
    const size_t own = layers.size();
    layers.push_back(std::move(layer));
    while (const dirent *entry = next_entry(entries))
        if (!frame_entry(mount, child_path(path, entry->d_name), entry->d_name, lower, inside))
            return false;
    resemble(inside, lower);
    return ::fstat(inside.get(), &layers[own].root) == 0;
}

bool PrivateTree::frame_entry(const Mount &mount, const std::string &path, const char *name,
                              const Descriptor &lower, const Descriptor &inside)
{
    const Descriptor original(::openat(lower.get(), name, look_only));
    struct stat info {};
    if (::fstat(original.get(), &info) != 0)
        return true;
    if (S_ISLNK(info.st_mode)) {
        std::string target(static_cast<size_t>(info.st_size) + 1, '\0');
        const ssize_t length = ::readlinkat(original.get(), "", target.data(), target.size());
        target.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return ::symlinkat(target.c_str(), inside.get(), name) == 0 || fail("'" + path + "'");
    }
    const bool made = S_ISDIR(info.st_mode) ? ::mkdirat(inside.get(), name, 0700) == 0
                                            : ::mknodat(inside.get(), name, frame_place, 0) == 0;
    const Descriptor place(::openat(inside.get(), name, look_only));
    if (!made || !place.is_open())
        return fail("'" + path + "' cannot be laid out anew");
    if (!S_ISDIR(info.st_mode))
        return carry(original, place, path);
    const bool is_mount =
        std::ranges::any_of(mounts, [&](const Mount &other) { return other.path == path; });
    if (!is_mount)
        return hold(mount, path, original, place);
    resemble(place, original);
    return true;
}

// --- Shared directories ----------------------------------------------------------------------

const Mount *PrivateTree::mount_of(const std::string &path) const
{
    const Mount *found = nullptr;
    for (const Mount &mount : mounts)
        if (mount.place.is_open() && is_below(path, mount.path))
            found = &mount;
    return found;
}

// In a user namespace an overlay takes up nothing of others, not even a directory of theirs in
// which the user may write. With an overlay of its own such a directory need not be taken up. They
// are looked for where people share files: near the root, and above the working directory, below
// which all is made anew that is the user's but has another group.
void PrivateTree::hold_shared(const std::string &path, int depth)
{
    const Directory entries = open_list(AT_FDCWD, path.c_str());
    while (const dirent *entry = next_entry(entries)) {
        const std::string below = child_path(path, entry->d_name);
        const bool leads_on = depth > 1 || is_below(working, below);
        const Mount *mount = mount_of(below);
        if (entry->d_type != DT_DIR || is_pseudo(*mount) || mount->is_read_only)
            continue;
        hold_if_shared(*mount, below);
        if (leads_on)
            hold_shared(below, depth - 1);
    }
}

void PrivateTree::hold_if_shared(const Mount &mount, const std::string &path)
{
    const Descriptor original(::open(path.c_str(), look_only | O_DIRECTORY));
    struct stat info {};
    const bool has_layer =
        std::ranges::any_of(layers, [&](const Layer &layer) { return layer.path == path; });
    if (has_layer || ::fstat(original.get(), &info) != 0 || !may(original, W_OK))
        return;
    const Owner real = ask_owner(original);
    const bool is_own = real.user == ::geteuid() && real.group == ::getegid();
    if (is_own && (path != working || !has_foreign_groups(original, ask_owner)))
        return;
    hold(mount, path, original, place_of(path));
    if (info.st_mode & S_ISGID)
        said.push_back("what is made in '" + path +
                       "' gets the user's own group in this view, not that of the directory");
}

// --- The end ---------------------------------------------------------------------------------

// The machine's root goes out of sight with all that is mounted on it.
bool PrivateTree::enter()
{
    const Descriptor root = open_directory(stage.get(), "top");
    if (::fchdir(root.get()) != 0 || ::syscall(SYS_pivot_root, ".", ".") != 0 ||
        ::umount2(".", MNT_DETACH) != 0 || ::chdir("/") != 0)
        return fail("the private tree cannot be entered");
    return true;
}
