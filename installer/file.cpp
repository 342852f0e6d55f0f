#include "file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include "lib.h"
#include "log.h"

static_assert(sizeof(File::name) == path_size);

namespace {

FileFn ok = nullptr;
FileFn fail = nullptr;

// The callbacks' texts are not const by type only.
void tell(FileFn callback, const char *source, const char *destination, int mode)
{
    if (callback)
        callback(const_cast<char *>(source), const_cast<char *>(destination), mode);
}

constexpr int made = 1;
constexpr int removed = 0;

} // namespace

void file_setup_fn(FileFn xok, FileFn xfail)
{
    ok = xok;
    fail = xfail;
}

void file_setup(const FSInf *inf)
{
    if (inf)
        file_setup_fn(inf->xok, inf->xfail);
}

void file_old_setup(FSInf *inf)
{
    if (inf)
        *inf = {.xok = ok, .xfail = fail};
}

void file_error(const char *format, ...)
{
    const int reason = errno;
    if (!format)
        return;
    char message[reasoned_size];
    va_list arguments;
    va_start(arguments, format);
    vformat_reasoned(message, std::strerror(reason), format, arguments);
    va_end(arguments);
    emsg("%s", message);
    errno = reason;
}

// --- Looking ---------------------------------------------------------------------------------

namespace {

// The next entry; null at the end, also when the rest cannot be read.
const dirent *next_entry(const FHandle *h)
{
    errno = 0;
    const dirent *entry = ::readdir(h->handle);
    if (!entry && errno != 0)
        file_error("Error reading dir '%s'", h->path);
    return entry;
}

bool is_dots(const char *name)
{
    return s_strcmp(name, ".") == 0 || s_strcmp(name, "..") == 0;
}

// Finds the next entry that the scan is for and puts its path into the record.
const dirent *next_match(File *x, const FHandle *h)
{
    while (const dirent *entry = next_entry(h)) {
        if (is_dots(entry->d_name) || !wild_match(entry->d_name, h->wild))
            continue;
        if (join_path(x->name, h->path, entry->d_name))
            return entry;
        emsg("The path of '%s' in '%s' is too long, passed over", entry->d_name, h->path);
    }
    return nullptr;
}

// Not an error: the entry may have gone since its directory was read.
void log_unexamined(const File *x)
{
    dmsg("Error examining '%s', %s", x->name, std::strerror(errno));
}

FHandle *open_scan(const char *path, const char *wild)
{
    errno = 0;
    DIR *stream = ::opendir(path);
    if (!stream) {
        file_error("Error opening dir '%s'", path);
        return nullptr;
    }
    return new FHandle{.path = s_strdup(path), .wild = s_strdup(wild), .handle = stream};
}

void read_link(File *x)
{
    Text target(static_cast<char *>(std::calloc(1, path_size)));
    if (!target)
        return;
    if (::readlink(x->name, target.get(), path_size - 1) < 0) {
        file_error("Error reading symlink '%s'", x->name);
        scpy(target.get(), "READLINK FAILED", path_size);
    }
    std::free(std::exchange(x->link, target.release()));
}

} // namespace

File *file_first(FHandle **h, const char *path, const char *wild)
{
    if (!h || !path || !wild)
        return nullptr;
    *h = open_scan(path, wild);
    File *record = *h ? new File{} : nullptr;
    if (record && !file_next(record, *h)) {
        file_free(&record);
        file_last(h);
    }
    return record;
}

int file_next(File *x, FHandle *h)
{
    if (!x || !h)
        return 0;
    while (next_match(x, h)) {
        if (file_stat(x))
            return 1;
        log_unexamined(x);
    }
    return 0;
}

void file_last(FHandle **h)
{
    if (!h || !*h)
        return;
    ::closedir((*h)->handle);
    std::free((*h)->path);
    std::free((*h)->wild);
    delete *h;
    *h = nullptr;
}

void file_free(File **x)
{
    if (!x || !*x)
        return;
    std::free((*x)->link);
    delete *x;
    *x = nullptr;
}

int file_stat(File *x)
{
    if (!x || ::lstat(x->name, &x->info) != 0)
        return 0;
    if (S_ISLNK(x->info.st_mode))
        read_link(x);
    return 1;
}

File *file_existf(const char *path)
{
    struct stat info {};
    errno = 0;
    if (!path || ::lstat(path, &info) != 0)
        return nullptr;
    File *record = new File{};
    record->info = info;
    scpy(record->name, path);
    if (S_ISLNK(info.st_mode))
        read_link(record);
    return record;
}

File *file_dup(const File *x)
{
    if (!x)
        return nullptr;
    File *copy = new File(*x);
    copy->link = s_strdup(x->link);
    return copy;
}

char *file_name(File *x)
{
    return x ? x->name : nullptr;
}

char *file_filename(const File *x, char *buffer, unsigned bfsz)
{
    if (!x || !buffer)
        return nullptr;
    scpy(buffer, last_component(x->name), static_cast<int>(bfsz) + 1);
    return buffer;
}

char *file_path(const File *x, char *buffer, unsigned bfsz)
{
    if (!x || !buffer || bfsz == 0)
        return nullptr;
    scpy(buffer, x->name, static_cast<int>(bfsz));
    const char *name = last_component(buffer);
    buffer[name > buffer ? name - buffer - 1 : 0] = '\0';
    return buffer;
}

bool is_directory(const File &entry)
{
    return S_ISDIR(entry.info.st_mode);
}

const char *entry_name(const File &entry)
{
    const char *separator = std::strrchr(entry.name, Sep);
    return separator ? separator + 1 : entry.name;
}

namespace {

// Fills in the kind of an entry, from its directory where that tells it.
bool fill_kind(File &record, const dirent &entry)
{
    if (entry.d_type == DT_UNKNOWN)
        return ::lstat(record.name, &record.info) == 0;
    record.info.st_mode = static_cast<mode_t>(DTTOIF(entry.d_type));
    return true;
}

} // namespace

Scan::Scan(const char *path, const char *wild) : handle(open_scan(path, wild))
{
    if (handle)
        next();
}

void Scan::next()
{
    while (const dirent *entry = next_match(&record, handle)) {
        if (fill_kind(record, *entry))
            return;
        log_unexamined(&record);
    }
    file_last(&handle);
}

int file_exist(const char *path)
{
    if (!path)
        return 0;
    errno = 0;
    struct stat info {};
    if (::stat(path, &info) != 0) {
        // What cannot be looked at counts as missing, but that is not why it does.
        if (errno != ENOENT && errno != ENOTDIR)
            file_error("Error examining '%s'", path);
        dmsg("'%s' does not exist", path);
        return 0;
    }
    if (!S_ISDIR(info.st_mode)) {
        dmsg("'%s' exists and is a file", path);
        return 1;
    }
    dmsg("'%s' exists and is a directory", path);
    return 2;
}

bool is_same_file(const char *a, const char *b)
{
    struct stat first {};
    struct stat second {};
    return a && b && ::stat(a, &first) == 0 && ::stat(b, &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

namespace {

// An account that is not known is no error; one that could not be looked up is.
template <typename Entry> const Entry *look_up(Entry *(*get)(const char *), const char *name)
{
    if (!name)
        return nullptr;
    errno = 0;
    const Entry *found = get(name);
    if (!found && errno != 0 && errno != ENOENT)
        file_error("Error looking up '%s'", name);
    return found;
}

} // namespace

int file_getuid(const char *name)
{
    const passwd *user = look_up(::getpwnam, name);
    return user ? static_cast<int>(user->pw_uid) : -1;
}

int file_getgid(const char *name)
{
    const group *found = look_up(::getgrnam, name);
    return found ? static_cast<int>(found->gr_gid) : -1;
}

int file_usergid(const char *name)
{
    const passwd *user = look_up(::getpwnam, name);
    return user ? static_cast<int>(user->pw_gid) : -1;
}

// --- Copying a file --------------------------------------------------------------------------

namespace {

constexpr size_t block_size = 8192;
// What one system call moves; the counting goes by blocks all the same.
constexpr size_t blocks_at_once = 16;

// Repeats a system call that a signal interrupted.
template <typename Call> auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

class Descriptor {
  public:
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor()
    {
        if (is_open())
            ::close(number);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool is_open() const { return number >= 0; }
    int get() const { return number; }
    bool close() { return ::close(std::exchange(number, -1)) == 0; }

  private:
    int number;
};

// A file to copy: its path, and its name in a directory that is open.
struct Source {
    explicit Source(const char *named) : path(named), directory(AT_FDCWD), name(named) {}
    Source(const Scan &scan, const File &entry)
        : path(entry.name), directory(scan.directory()), name(entry_name(entry))
    {
    }

    const char *path;
    int directory;
    const char *name;
};

int open_file(int directory, const char *name, int flags)
{
    // Not waiting matters for FIFOs alone, which would hold up the run for ever.
    constexpr mode_t default_mode = 0666;
    return uninterrupted(
        [&] { return ::openat(directory, name, flags | O_NONBLOCK | O_CLOEXEC, default_mode); });
}

void refuse_itself(const char *src)
{
    errno = EINVAL;
    file_error("Error copying '%s' onto itself", src);
}

// Opens the destination empty; a failure is logged. A new file cannot be the source; one that
// exists is looked at before it is cut.
int open_destination(const char *src, const char *dst)
{
    int opened = open_file(AT_FDCWD, dst, O_WRONLY | O_CREAT | O_EXCL);
    if (opened < 0 && errno == EEXIST) {
        if (is_same_file(src, dst)) {
            refuse_itself(src);
            return -1;
        }
        opened = open_file(AT_FDCWD, dst, O_WRONLY | O_CREAT | O_TRUNC);
    }
    if (opened < 0)
        file_error("Error opening '%s' for write", dst);
    return opened;
}

// Writes it all and returns true, or says in *written how much of it went out.
bool write_all(int to, const char *data, size_t size, size_t *written)
{
    for (*written = 0; *written < size;) {
        const ssize_t step =
            uninterrupted([&] { return ::write(to, data + *written, size - *written); });
        if (step <= 0)
            return false;
        *written += static_cast<size_t>(step);
    }
    return true;
}

bool copy_blocks(int from, int to, const char *src, const char *dst, unsigned long *bytes)
{
    std::array<char, block_size * blocks_at_once> buffer;
    while (true) {
        const ssize_t got =
            uninterrupted([&] { return ::read(from, buffer.data(), buffer.size()); });
        if (got < 0)
            file_error("Error reading from '%s'", src);
        if (got <= 0)
            return got == 0;
        size_t written = 0;
        const bool complete = write_all(to, buffer.data(), static_cast<size_t>(got), &written);
        if (bytes)
            *bytes += complete ? written : written - written % block_size;
        if (!complete) {
            file_error("Error writing to '%s'", dst);
            return false;
        }
    }
}

bool copy_content(const Source &src, const char *dst, unsigned long *bytes)
{
    Descriptor to(open_destination(src.path, dst));
    if (!to.is_open())
        return false;
    const Descriptor from(open_file(src.directory, src.name, O_RDONLY));
    if (!from.is_open()) {
        file_error("Error opening '%s' for read", src.path);
        return false;
    }
    if (!copy_blocks(from.get(), to.get(), src.path, dst, bytes))
        return false;
    if (!to.close()) {
        file_error("Error writing to '%s'", dst);
        return false;
    }
    return true;
}

// What cannot be read must not cost the destination what it holds. FIFOs, sockets and devices have
// no content of their own, and opening one can do or wait for anything.
bool refuse_unreadable(const char *src, mode_t mode)
{
    if (S_ISREG(mode))
        return false;
    errno = S_ISDIR(mode) ? EISDIR : ENOTSUP;
    if (S_ISDIR(mode))
        file_error("Error reading from '%s'", src);
    else
        file_error("Error opening '%s' for read, it is a FIFO, a socket or a device", src);
    return true;
}

// `mode` is the source's, links followed; 0 when there is nothing.
int copy_file(const Source &src, const char *dst, mode_t mode, unsigned long *bytes)
{
    const bool copied =
        !(mode && refuse_unreadable(src.path, mode)) && copy_content(src, dst, bytes);
    tell(copied ? ok : fail, src.path, dst, made);
    return copied;
}

mode_t followed_mode(const char *path)
{
    struct stat info {};
    return ::stat(path, &info) == 0 ? info.st_mode : 0;
}

bool is_readable(const char *path)
{
    return Descriptor(open_file(AT_FDCWD, path, O_RDONLY)).is_open();
}

} // namespace

int file_copy(const char *src, const char *dst, int overwrite, unsigned long *bytes)
{
    errno = 0;
    if (!src || !dst) {
        tell(fail, src, dst, made);
        return 0;
    }
    if (!overwrite && is_readable(dst))
        return -1;
    return copy_file(Source(src), dst, followed_mode(src), bytes);
}

int file_move(const char *src, const char *dst, int overwrite, unsigned long *bytes)
{
    const int copied = file_copy(src, dst, overwrite, bytes);
    if (copied < 0 && is_same_file(src, dst)) {
        // What was passed over as existing already is the source itself.
        refuse_itself(src);
        tell(fail, src, dst, made);
        return 0;
    }
    if (copied == 0)
        return 0;
    if (std::remove(src) != 0) {
        file_error("Error removing moved file '%s'", src);
        return 0;
    }
    return 1;
}

// --- Directories -----------------------------------------------------------------------------

namespace {

bool make_directory(const char *path)
{
    constexpr mode_t directory_mode = 0775;
    if (::mkdir(path, directory_mode) != 0)
        return false;
    dmsg("Directory created '%s'", path);
    tell(ok, path, nullptr, made);
    return true;
}

int mkdir_failed(const char *path)
{
    file_error("Error creating directory '%s'", path);
    tell(fail, path, nullptr, made);
    return 0;
}

// Makes each directory above the last component. Returns the reason why one could not be made; 0
// when there was none, those that are there already being expected.
int make_directories_above(char *path)
{
    int reason = 0;
    const size_t drive_prefix = 3;
    const size_t start = path[0] && path[1] == ':' ? drive_prefix : 1;
    for (size_t at = start; at < std::strlen(path); at++) {
        if (!is_separator(path[at]))
            continue;
        path[at] = '\0';
        if (!make_directory(path) && errno != EEXIST)
            reason = errno;
        path[at] = Sep;
    }
    return reason;
}

} // namespace

int file_mkdir(const char *dir, int make_all)
{
    if (!dir)
        return 0;
    errno = 0;
    char path[path_size];
    size_t length = static_cast<size_t>(scpy(path, dir));
    if (dir[length] != '\0') {
        // Cut, it would name something else.
        errno = ENAMETOOLONG;
        return mkdir_failed(path);
    }
    if (length > 0 && is_separator(path[length - 1]))
        path[--length] = '\0';
    const int reason_above = make_all ? make_directories_above(path) : 0;
    if (!make_directory(path) && errno != EEXIST) {
        // That there is nothing above is not why it could not be made.
        if (errno == ENOENT && reason_above != 0)
            errno = reason_above;
        return mkdir_failed(path);
    }
    return 1;
}

int file_rmdir(const char *dir, const char *not_list, int recurse)
{
    if (!dir)
        return 0;
    errno = 0;
    int count = 0;
    if (recurse) {
        for (Scan scan(dir, "*"); scan.entry(); scan.next()) {
            const File &entry = *scan.entry();
            if (wild_list(entry_name(entry), not_list))
                continue;
            const int gone = is_directory(entry)
                                 ? file_rmdir(entry.name, not_list, 1)
                                 : ::unlinkat(scan.directory(), entry_name(entry), 0) == 0;
            tell(gone ? ok : fail, entry.name, nullptr, removed);
            count += gone;
        }
    }
    const bool gone = ::rmdir(dir) == 0;
    tell(gone ? ok : fail, dir, nullptr, removed);
    return count + gone;
}

// --- Copying and moving trees ----------------------------------------------------------------

bool file_target(const File &entry, const char *directory, const char *top, char (&target)[256])
{
    if (!join_path(target, directory, entry_name(entry))) {
        errno = ENAMETOOLONG;
        file_error("Error opening '%s' in '%s' for write", entry_name(entry), directory);
        tell(fail, entry.name, directory, made);
        return false;
    }
    if (!is_directory(entry) ||
        (!is_same_file(entry.name, top) && !is_same_file(entry.name, target)))
        return true;
    errno = EINVAL;
    file_error("Error copying '%s' into itself", entry.name);
    return false;
}

namespace {

// What stays the same at every level of a tree that is copied or moved.
struct Tree {
    const char *not_list;
    int recurse;
    unsigned long *bytes;
    bool moving;
    const char *top;      // the destination that the whole tree goes into
    bool complete = true; // nothing below failed or was passed over, so that a moved source may go
};

int transfer_level(const char *path, const char *wild, const char *dst, Tree &tree);

// As file_mkdir, but where just the last directory is missing its name is taken as it stands: it
// may be that of a source, in which a backslash is a letter like any other.
int make_destination(const char *path)
{
    if (make_directory(path) || errno == EEXIST)
        return 1;
    return errno == ENOENT ? file_mkdir(path, 1) : mkdir_failed(path);
}

int transfer_file(const Scan &scan, const char *target, Tree &tree)
{
    const File &entry = *scan.entry();
    int done = 0;
    if (tree.moving) {
        done = file_move(entry.name, target, tree.recurse, tree.bytes);
    } else {
        errno = 0;
        const mode_t mode =
            S_ISLNK(entry.info.st_mode) ? followed_mode(entry.name) : entry.info.st_mode;
        done = copy_file(Source(scan, entry), target, mode, tree.bytes);
    }
    tree.complete = tree.complete && done;
    return done;
}

int remove_moved(const File &entry, const char *target, const Tree &tree, bool complete)
{
    if (complete && file_rmdir(entry.name, tree.not_list, tree.recurse))
        return 1;
    file_error("Failed to remove moved directory '%s'", target);
    return 0;
}

int transfer_directory(const File &entry, const char *target, Tree &tree)
{
    if (!tree.recurse)
        return make_destination(target);
    const bool complete_so_far = std::exchange(tree.complete, true);
    int count = file_exist(target) == 0;
    if (count == 1 && !make_destination(target)) {
        tree.complete = false;
        return 0;
    }
    count += transfer_level(entry.name, "*", target, tree);
    if (tree.moving)
        count += remove_moved(entry, target, tree, tree.complete);
    tree.complete = tree.complete && complete_so_far;
    return count;
}

int transfer_entry(const Scan &scan, const char *dst, Tree &tree)
{
    const File &entry = *scan.entry();
    char target[path_size];
    if (!file_target(entry, dst, tree.top, target)) {
        tree.complete = false;
        return 0;
    }
    return is_directory(entry) ? transfer_directory(entry, target, tree)
                               : transfer_file(scan, target, tree);
}

int transfer_level(const char *path, const char *wild, const char *dst, Tree &tree)
{
    int count = 0;
    for (Scan scan(path, wild); scan.entry(); scan.next())
        if (!wild_list(entry_name(*scan.entry()), tree.not_list))
            count += transfer_entry(scan, dst, tree);
    return count;
}

int transfer_tree(const char *path, const char *wild, const char *dst, Tree tree)
{
    if (!path || !dst)
        return 0;
    errno = 0;
    const int created = file_exist(dst) == 0;
    if (created && !make_destination(dst))
        return 0;
    return created + transfer_level(path, wild ? wild : "*", dst, tree);
}

} // namespace

int file_xcopy(const char *path, const char *wild, const char *not_list, const char *dst,
               int recurse, unsigned long *bytes)
{
    return transfer_tree(
        path, wild, dst,
        {.not_list = not_list, .recurse = recurse, .bytes = bytes, .moving = false, .top = dst});
}

int file_xmove(const char *path, const char *wild, const char *not_list, const char *dst,
               int recurse, unsigned long *bytes)
{
    return transfer_tree(
        path, wild, dst,
        {.not_list = not_list, .recurse = recurse, .bytes = bytes, .moving = true, .top = dst});
}

// --- Modes and owners ------------------------------------------------------------------------

namespace {

// `path` is for messages; the call goes by the name in the directory.
int change_mode(int directory, const char *name, const char *path, mode_t mode)
{
    errno = 0;
    if (::fchmodat(directory, name, mode, 0) == 0)
        return 1;
    file_error("Error changing mode of '%s' to %d", path, static_cast<int>(mode));
    return 0;
}

int change_owner(int directory, const char *name, const char *path, uid_t uid, gid_t gid)
{
    constexpr auto unknown = static_cast<uid_t>(-1);
    if (uid == unknown)
        return 0;
    // Meant: without a group of its own the owner's number serves as one.
    if (gid == unknown)
        gid = uid;
    errno = 0;
    if (::fchownat(directory, name, uid, gid, 0) == 0)
        return 1;
    file_error("Error changing ownership of '%s' to uid=%d, gid=%d", path, static_cast<int>(uid),
               static_cast<int>(gid));
    return 0;
}

} // namespace

int file_chmod(const File *x, mode_t mode)
{
    return x ? change_mode(AT_FDCWD, x->name, x->name, mode) : 0;
}

int file_chown(const File *x, uid_t uid, gid_t gid)
{
    return x ? change_owner(AT_FDCWD, x->name, x->name, uid, gid) : 0;
}

int file_chmod(const Scan &scan, mode_t mode)
{
    const File &entry = *scan.entry();
    return change_mode(scan.directory(), entry_name(entry), entry.name, mode);
}

int file_chown(const Scan &scan, uid_t uid, gid_t gid)
{
    const File &entry = *scan.entry();
    return change_owner(scan.directory(), entry_name(entry), entry.name, uid, gid);
}
