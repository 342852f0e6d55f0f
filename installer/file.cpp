#include "file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/mman.h>
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

// Repeats a system call that a signal interrupted.
template <typename Call> auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

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

// The next entry that is not the directory itself or the one above.
const dirent *next_name(const FHandle *h)
{
    const dirent *entry = next_entry(h);
    while (entry && is_dots(entry->d_name))
        entry = next_entry(h);
    return entry;
}

// Finds the next entry that the scan is for and its path.
const dirent *next_match(char (&path)[path_size], const FHandle *h)
{
    while (const dirent *entry = next_name(h)) {
        if (!wild_match(entry->d_name, h->wild))
            continue;
        if (join_path(path, h->path, entry->d_name))
            return entry;
        emsg("The path of '%s' in '%s' is too long, passed over", entry->d_name, h->path);
    }
    return nullptr;
}

// Not an error: the entry may have gone since its directory was read.
void log_unexamined(const char *path)
{
    dmsg("Error examining '%s', %s", path, std::strerror(errno));
}

// Opens a directory by its name in another; null, with errno set, when that fails.
FHandle *open_scan(int above, const char *name, int flags, const char *path, const char *wild)
{
    errno = 0;
    Descriptor opened(uninterrupted([&] {
        return ::openat(above, name, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | flags);
    }));
    DIR *stream = opened.is_open() ? ::fdopendir(opened.get()) : nullptr;
    if (!stream)
        return nullptr;
    opened.release();
    return new FHandle{.path = s_strdup(path), .wild = s_strdup(wild), .handle = stream};
}

FHandle *open_scan(const char *path, const char *wild)
{
    FHandle *h = open_scan(AT_FDCWD, path, 0, path, wild);
    if (!h)
        file_error("Error opening dir '%s'", path);
    return h;
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
    while (next_match(x->name, h)) {
        if (file_stat(x))
            return 1;
        log_unexamined(x->name);
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

bool has_entries(const char *path)
{
    const Owned<FHandle, file_last> h(path ? open_scan(path, "*") : nullptr);
    return h && next_name(h.get());
}

bool is_directory(const Entry &entry)
{
    return S_ISDIR(entry.kind);
}

namespace {

// The kind that a directory tells of an entry; 0: it does not.
mode_t told_kind(const dirent &entry)
{
// An extension of many systems, but not of all.
#if defined(DTTOIF) && !defined(INSTALLER_PLAIN_DIRENT)
    if (entry.d_type != DT_UNKNOWN)
        return static_cast<mode_t>(DTTOIF(entry.d_type));
#endif
    static_cast<void>(entry);
    return 0;
}

// 0 when it cannot be examined.
mode_t examined_mode(int directory, const char *name, int flags)
{
    struct stat info {};
    return ::fstatat(directory, name, &info, flags) == 0 ? info.st_mode : 0;
}

// The kind of an entry by another look at the disk; 0 when it cannot be examined.
mode_t examined_kind(int directory, const char *name)
{
    return examined_mode(directory, name, AT_SYMLINK_NOFOLLOW) & S_IFMT;
}

// Asked when something failed: whether the entry is one to pass over. Leaves errno alone.
bool is_gone(int directory, const Entry &entry)
{
    const int reason = errno;
    // What is missing is gone, even if another one has that name by now; but not what a link
    // misses.
    const bool missing = reason == ENOENT && !S_ISLNK(entry.kind);
    const bool gone = missing || examined_kind(directory, entry.name) == 0;
    if (gone)
        log_unexamined(entry.path);
    errno = reason;
    return gone;
}

bool is_gone(const Scan &scan)
{
    return is_gone(scan.directory(), *scan.entry());
}

} // namespace

Scan::Scan(const char *path, const char *wild) : handle(open_scan(path, wild))
{
    next();
}

Scan::Scan(int above, const Entry &start)
    : handle(open_scan(above, start.name, O_NOFOLLOW, start.path, "*"))
{
    if (handle) {
        next();
        return;
    }
    // What was swapped for something else is as good as gone, but no everyday event.
    const bool swapped = errno == ENOTDIR || errno == ELOOP;
    lost = is_gone(above, start) || swapped;
    if (!lost || swapped)
        file_error("Error opening dir '%s'", start.path);
}

Scan Scan::below() const
{
    return {directory(), record};
}

void Scan::next()
{
    more = false;
    while (const dirent *entry = handle ? next_match(record.path, handle) : nullptr) {
        record.name = record.path + std::strlen(record.path) - std::strlen(entry->d_name);
        record.kind = told_kind(*entry);
        if (record.kind == 0)
            record.kind = examined_kind(directory(), record.name);
        more = record.kind != 0;
        if (more)
            return;
        log_unexamined(record.path);
    }
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

mode_t file_mode(const char *path)
{
    return path ? examined_mode(AT_FDCWD, path, 0) : 0;
}

namespace {

bool is_same_inode(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

bool is_same_file(const char *a, const char *b)
{
    struct stat first {};
    struct stat second {};
    return a && b && ::stat(a, &first) == 0 && ::stat(b, &second) == 0 &&
           is_same_inode(first, second);
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

// A file to copy: by its path, or as the entry that a scan is at.
struct Source {
    explicit Source(const char *named) : path(named), directory(AT_FDCWD), name(named) {}
    explicit Source(const Scan &scan)
        : path(scan.entry()->path), directory(scan.directory()), name(scan.entry()->name),
          entry(scan.entry())
    {
    }

    bool is_link() const { return !entry || S_ISLNK(entry->kind); }
    bool is_gone() const { return entry && ::is_gone(directory, *entry); }
    bool is_swapped() const { return entry && examined_kind(directory, name) != entry->kind; }
    // Of what would be read; 0: nothing is known of it.
    mode_t mode() const
    {
        return entry && !is_link() ? entry->kind : examined_mode(directory, name, 0);
    }

    const char *path;
    int directory;
    const char *name;
    const Entry *entry = nullptr;
};

int open_file(int directory, const char *name, int flags)
{
    // Not waiting matters for FIFOs alone, which would hold up the run for ever.
    constexpr mode_t default_mode = 0666;
    return uninterrupted(
        [&] { return ::openat(directory, name, flags | O_NONBLOCK | O_CLOEXEC, default_mode); });
}

int open_source(const Source &src)
{
    return open_file(src.directory, src.name, O_RDONLY | (src.is_link() ? 0 : O_NOFOLLOW));
}

bool opening_failed(const Source &src)
{
    file_error("Error opening '%s' for read", src.path);
    return false;
}

void refuse_itself(const char *src)
{
    errno = EINVAL;
    file_error("Error copying '%s' onto itself", src);
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

// An open copy and what is said about it.
struct Transfer {
    int from;
    int to;
    const char *src;
    const char *dst;
    unsigned long *bytes; // null: not counted

    // By whole blocks, where not all of it could be written.
    void count(size_t written, bool complete) const
    {
        if (bytes)
            *bytes += complete ? written : written - written % block_size;
    }

    bool reading_failed() const
    {
        file_error("Error reading from '%s'", src);
        return false;
    }

    bool writing_failed() const
    {
        file_error("Error writing to '%s'", dst);
        return false;
    }
};

// Behind the end of a file that has become shorter, the page with its end reads as zeros. They were
// never in the file: takes them out of the copy again.
bool drop_zeros(const Transfer &copy, off_t &offset)
{
    struct stat info {};
    if (::fstat(copy.from, &info) != 0 || info.st_size >= offset ||
        offset - info.st_size >= ::sysconf(_SC_PAGESIZE))
        return true;
    if (copy.bytes)
        *copy.bytes -= static_cast<unsigned long>(offset - info.st_size);
    offset = info.st_size;
    return (::ftruncate(copy.to, offset) == 0 && ::lseek(copy.to, offset, SEEK_SET) == offset) ||
           copy.writing_failed();
}

// Copies the rest of a large file, but for its end, from where the system keeps it, which spares
// moving it into a buffer first. Only the system looks into what is mapped: where the file has
// become shorter or cannot be read, that fails the call and not the run, and reading goes on there
// and tells why.
bool copy_windows(const Transfer &copy, off_t offset)
{
    constexpr size_t window_size = 32 * block_size;
    constexpr off_t large = 4 * window_size;
    struct stat info {};
    if (::fstat(copy.from, &info) != 0 || info.st_size < large)
        return true;
    for (bool mapped = true; mapped && offset + static_cast<off_t>(window_size) <= info.st_size;) {
        void *window = ::mmap(nullptr, window_size, PROT_READ, MAP_SHARED, copy.from, offset);
        if (window == MAP_FAILED)
            break;
        size_t written = 0;
        const bool complete =
            write_all(copy.to, static_cast<const char *>(window), window_size, &written);
        mapped = complete || errno != EFAULT;
        ::munmap(window, window_size);
        copy.count(written, complete || !mapped);
        offset += static_cast<off_t>(written);
        if (!complete && mapped)
            return copy.writing_failed();
    }
    return drop_zeros(copy, offset) &&
           (::lseek(copy.from, offset, SEEK_SET) == offset || copy.reading_failed());
}

bool copy_blocks(const Transfer &copy)
{
    std::array<char, block_size * blocks_at_once> buffer;
    for (bool first = true;; first = false) {
        const ssize_t got =
            uninterrupted([&] { return ::read(copy.from, buffer.data(), buffer.size()); });
        if (got < 0)
            return copy.reading_failed();
        if (got == 0)
            return true;
        size_t written = 0;
        const bool complete = write_all(copy.to, buffer.data(), static_cast<size_t>(got), &written);
        copy.count(written, complete);
        if (!complete)
            return copy.writing_failed();
        if (first && written == buffer.size() && !copy_windows(copy, got))
            return false;
    }
}

// What cannot be read must not cost the destination what it holds. FIFOs, sockets and devices have
// no content of their own, and opening one can do or wait for anything.
void refuse_unreadable(const char *src, mode_t mode)
{
    errno = S_ISDIR(mode) ? EISDIR : ENOTSUP;
    if (S_ISDIR(mode))
        file_error("Error reading from '%s'", src);
    else
        file_error("Error opening '%s' for read, it is a FIFO, a socket or a device", src);
}

// What was opened may be something else by now than when its kind was told. What was not opened may
// still be the destination itself. False, logged, when it cannot be a source.
bool examine_source(const Source &src, const Descriptor &from, struct stat &info)
{
    if (!from.is_open()) {
        ::fstatat(src.directory, src.name, &info, 0);
        return true;
    }
    if (::fstat(from.get(), &info) != 0)
        return opening_failed(src);
    if (!S_ISREG(info.st_mode))
        refuse_unreadable(src.path, info.st_mode);
    return S_ISREG(info.st_mode);
}

// Opens what exists already. It is looked at before it is emptied, and so is the source.
int open_existing(const Source &src, const Descriptor &from, const char *dst)
{
    struct stat source {};
    struct stat info {};
    if (!examine_source(src, from, source))
        return -1;
    Descriptor to(open_file(AT_FDCWD, dst, O_WRONLY | O_CREAT));
    const bool opened = to.is_open() && ::fstat(to.get(), &info) == 0;
    if (opened && is_same_inode(info, source)) {
        refuse_itself(src.path);
        return -1;
    }
    if (!opened || (S_ISREG(info.st_mode) && ::ftruncate(to.get(), 0) != 0)) {
        file_error("Error opening '%s' for write", dst);
        return -1;
    }
    return to.release();
}

// Opens the destination empty; a failure is logged. A new file cannot be the source, and has
// nothing to lose.
int open_destination(const Source &src, const Descriptor &from, const char *dst)
{
    const int created = open_file(AT_FDCWD, dst, O_WRONLY | O_CREAT | O_EXCL);
    if (created >= 0)
        return created;
    if (errno == EEXIST)
        return open_existing(src, from, dst);
    file_error("Error opening '%s' for write", dst);
    return -1;
}

// A source that opened, or that just may after all when the destination is there.
bool copy_content(const Source &src, Descriptor &opened, const char *dst, unsigned long *bytes)
{
    Descriptor to(open_destination(src, opened, dst));
    if (!to.is_open())
        return false;
    // A link may lead to what was just made.
    const Descriptor from(opened.is_open() ? opened.release() : open_source(src));
    if (!from.is_open())
        return opening_failed(src);
    const Transfer copy = {
        .from = from.get(), .to = to.get(), .src = src.path, .dst = dst, .bytes = bytes};
    if (!copy_blocks(copy))
        return false;
    if (!to.close()) {
        file_error("Error writing to '%s'", dst);
        return false;
    }
    return true;
}

constexpr int passed_over = -1;

int try_copy(const Source &src, const char *dst, unsigned long *bytes)
{
    const mode_t mode = src.mode();
    if (mode && !S_ISREG(mode)) {
        if (src.is_gone())
            return passed_over;
        refuse_unreadable(src.path, mode);
        return 0;
    }
    Descriptor from(open_source(src));
    if (!from.is_open() && src.is_gone())
        return passed_over;
    // What has taken the place of the source is no reason to empty the destination.
    if (!from.is_open() && src.is_swapped())
        return opening_failed(src);
    return copy_content(src, from, dst, bytes);
}

int copy_file(const Source &src, const char *dst, unsigned long *bytes)
{
    const int copied = try_copy(src, dst, bytes);
    if (copied != passed_over)
        tell(copied ? ok : fail, src.path, dst, made);
    return copied;
}

bool is_readable(const char *path)
{
    return Descriptor(open_file(AT_FDCWD, path, O_RDONLY)).is_open();
}

int move_file(const Source &src, const char *dst, int overwrite, unsigned long *bytes)
{
    errno = 0;
    const bool skipped = !overwrite && is_readable(dst);
    if (skipped && is_same_file(src.path, dst)) {
        // What was passed over as existing already is the source itself.
        refuse_itself(src.path);
        tell(fail, src.path, dst, made);
        return 0;
    }
    if (const int copied = skipped ? 1 : copy_file(src, dst, bytes); copied <= 0)
        return copied;
    if (::unlinkat(src.directory, src.name, 0) == 0)
        return 1;
    file_error("Error removing moved file '%s'", src.path);
    return 0;
}

bool is_named(const char *src, const char *dst)
{
    if (src && dst)
        return true;
    errno = 0;
    tell(fail, src, dst, made);
    return false;
}

} // namespace

int file_copy(const char *src, const char *dst, int overwrite, unsigned long *bytes)
{
    if (!is_named(src, dst))
        return 0;
    errno = 0;
    if (!overwrite && is_readable(dst))
        return -1;
    return copy_file(Source(src), dst, bytes);
}

int file_move(const char *src, const char *dst, int overwrite, unsigned long *bytes)
{
    return is_named(src, dst) ? move_file(Source(src), dst, overwrite, bytes) : 0;
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

// Makes the last directory of a path, which is taken as it stands: in a name on disk a backslash is
// a letter like any other. `reason_above` is why one above could not be made; 0: nothing is known.
int make_last_directory(const char *path, int reason_above = 0)
{
    if (make_directory(path) || errno == EEXIST)
        return 1;
    // That there is nothing above is not why it could not be made.
    if (errno == ENOENT && reason_above != 0)
        errno = reason_above;
    return mkdir_failed(path);
}

// Makes each directory above the last component. Returns the first reason why one could not be
// made; 0 when there was none, those that are there already being expected.
int make_directories_above(char *path)
{
    int reason = 0;
    const size_t drive_prefix = 3;
    const size_t start = path[0] && path[1] == ':' ? drive_prefix : 1;
    for (size_t at = start; at < std::strlen(path); at++) {
        if (!is_separator(path[at]))
            continue;
        path[at] = '\0';
        if (!make_directory(path) && errno != EEXIST && reason == 0)
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
    return make_last_directory(path, make_all ? make_directories_above(path) : 0);
}

namespace {

// 1 when the entry was removed, 0 when not, or passed_over.
int remove_entry(const Scan &scan, int flags)
{
    if (::unlinkat(scan.directory(), scan.entry()->name, flags) == 0)
        return 1;
    return is_gone(scan) ? passed_over : 0;
}

int remove_tree(const Scan &scan, const char *not_list);

int remove_level(Scan &scan, const char *not_list)
{
    int count = 0;
    for (; scan.entry(); scan.next()) {
        const Entry &entry = *scan.entry();
        if (wild_list(entry.name, not_list))
            continue;
        const int gone = is_directory(entry) ? remove_tree(scan, not_list) : remove_entry(scan, 0);
        if (gone == passed_over)
            continue;
        tell(gone ? ok : fail, entry.path, nullptr, removed);
        count += gone;
    }
    return count;
}

// The number of items removed, or passed_over.
int remove_tree(const Scan &scan, const char *not_list)
{
    Scan level = scan.below();
    if (level.is_lost())
        return passed_over;
    const int count = remove_level(level, not_list);
    const int gone = remove_entry(scan, AT_REMOVEDIR);
    if (gone == passed_over)
        return count > 0 ? count : passed_over;
    tell(gone ? ok : fail, scan.entry()->path, nullptr, removed);
    return count + gone;
}

} // namespace

int file_rmdir(const char *dir, const char *not_list, int recurse)
{
    if (!dir)
        return 0;
    errno = 0;
    int count = 0;
    if (recurse) {
        Scan scan(dir, "*");
        count = remove_level(scan, not_list);
    }
    const bool gone = ::rmdir(dir) == 0;
    tell(gone ? ok : fail, dir, nullptr, removed);
    return count + gone;
}

int file_remove(const Scan &scan)
{
    errno = 0;
    return std::max(0, remove_entry(scan, 0));
}

int file_rmdir(const Scan &scan, const char *not_list)
{
    errno = 0;
    return std::max(0, remove_tree(scan, not_list));
}

// --- Copying and moving trees ----------------------------------------------------------------

namespace {

// What stays the same at every level of a tree that is copied or moved.
struct Tree {
    const char *not_list;
    int recurse;
    unsigned long *bytes;
    bool moving;
    const char *source;   // what the tree is
    const char *top;      // the destination that the whole tree goes into
    bool complete = true; // nothing below failed or was left out, so that a moved source may go
};

// The directory that a level goes into.
struct Destination {
    const char *path;
    bool beyond_link; // a link in the destination led here
};

// Where the current entry goes. False when that path is too long (logged and told as a failure).
bool find_target(const Entry &entry, const char *directory, char (&target)[path_size])
{
    if (join_path(target, directory, entry.name))
        return true;
    errno = ENAMETOOLONG;
    file_error("Error opening '%s' in '%s' for write", entry.name, directory);
    tell(fail, entry.path, directory, made);
    return false;
}

// True when both exist and the first, all links followed, is the second or below it.
bool is_within(const char *path, const char *directory)
{
    const Text inner(::realpath(path, nullptr));
    const Text outer(::realpath(directory, nullptr));
    if (!inner || !outer)
        return false;
    const std::string_view below = inner.get();
    const std::string_view above = outer.get();
    return below.starts_with(above) &&
           (below.size() == above.size() || above.ends_with(Sep) || below[above.size()] == Sep);
}

bool is_one_of(const char *path, std::initializer_list<const char *> others)
{
    struct stat info {};
    struct stat other {};
    return ::stat(path, &info) == 0 && std::ranges::any_of(others, [&](const char *place) {
               return ::stat(place, &other) == 0 && is_same_inode(info, other);
           });
}

// A directory that went into itself would never end: it is its own target, where that is made or
// where the whole tree goes, or a link in the destination leads back into the tree.
bool goes_into_itself(const Entry &entry, const Destination &to, const Destination &target,
                      const Tree &tree)
{
    if (!is_one_of(entry.path, {tree.top, to.path, target.path}) &&
        !(target.beyond_link && is_within(target.path, tree.source)))
        return false;
    errno = EINVAL;
    file_error("Error copying '%s' into itself", entry.path);
    return true;
}

bool is_link(const char *path)
{
    return S_ISLNK(examined_kind(AT_FDCWD, path));
}

int transfer_level(Scan &scan, const Destination &to, Tree &tree);

int transfer_file(const Scan &scan, const char *target, Tree &tree)
{
    const Source source(scan);
    errno = 0;
    const int done = tree.moving ? move_file(source, target, tree.recurse, tree.bytes)
                                 : copy_file(source, target, tree.bytes);
    tree.complete = tree.complete && done;
    return std::max(0, done);
}

int remove_moved(const Scan &scan, const char *target, const Tree &tree, bool complete)
{
    if (complete && file_rmdir(scan, tree.not_list))
        return 1;
    file_error("Failed to remove moved directory '%s'", target);
    return 0;
}

int transfer_contents(const Scan &scan, const Destination &target, bool exists, Tree &tree)
{
    Scan level = scan.below();
    if (level.is_lost())
        return 0;
    if (!exists && !make_last_directory(target.path)) {
        tree.complete = false;
        return 0;
    }
    const bool complete_so_far = std::exchange(tree.complete, true);
    int count = !exists + transfer_level(level, target, tree);
    if (tree.moving)
        count += remove_moved(scan, target.path, tree, tree.complete);
    tree.complete = tree.complete && complete_so_far;
    return count;
}

int transfer_directory(const Scan &scan, const Destination &to, const char *path, Tree &tree)
{
    const Destination target = {.path = path, .beyond_link = to.beyond_link || is_link(path)};
    if (goes_into_itself(*scan.entry(), to, target, tree)) {
        tree.complete = false;
        return 0;
    }
    if (!tree.recurse)
        return make_last_directory(target.path);
    return transfer_contents(scan, target, file_exist(target.path) != 0, tree);
}

// The number of items made.
int transfer_entry(const Scan &scan, const Destination &to, Tree &tree)
{
    const Entry &entry = *scan.entry();
    char target[path_size];
    if (!find_target(entry, to.path, target)) {
        tree.complete = false;
        return 0;
    }
    return is_directory(entry) ? transfer_directory(scan, to, target, tree)
                               : transfer_file(scan, target, tree);
}

int transfer_level(Scan &scan, const Destination &to, Tree &tree)
{
    int count = 0;
    for (; scan.entry(); scan.next())
        if (!wild_list(scan.entry()->name, tree.not_list))
            count += transfer_entry(scan, to, tree);
    return count;
}

int transfer_tree(const char *wild, Tree tree)
{
    if (!tree.source || !tree.top)
        return 0;
    errno = 0;
    const int created = file_exist(tree.top) == 0;
    if (created && !file_mkdir(tree.top, 1))
        return 0;
    Scan scan(tree.source, wild ? wild : "*");
    return created + transfer_level(scan, {.path = tree.top, .beyond_link = false}, tree);
}

} // namespace

int file_xcopy(const char *path, const char *wild, const char *not_list, const char *dst,
               int recurse, unsigned long *bytes)
{
    return transfer_tree(wild, {.not_list = not_list,
                                .recurse = recurse,
                                .bytes = bytes,
                                .moving = false,
                                .source = path,
                                .top = dst});
}

int file_xmove(const char *path, const char *wild, const char *not_list, const char *dst,
               int recurse, unsigned long *bytes)
{
    return transfer_tree(wild, {.not_list = not_list,
                                .recurse = recurse,
                                .bytes = bytes,
                                .moving = true,
                                .source = path,
                                .top = dst});
}

int file_xcopy(const Scan &scan, const char *not_list, const char *dst, unsigned long *bytes)
{
    const Entry &entry = *scan.entry();
    char top[path_size] = "";
    static_cast<void>(join_path(top, dst, entry.name));
    Tree tree = {.not_list = not_list,
                 .recurse = 1,
                 .bytes = bytes,
                 .moving = false,
                 .source = entry.path,
                 .top = top};
    return transfer_entry(scan, {.path = dst, .beyond_link = false}, tree);
}

// --- Modes and owners ------------------------------------------------------------------------

namespace {

int mode_changed(bool done, const char *path, mode_t mode)
{
    if (!done)
        file_error("Error changing mode of '%s' to %d", path, static_cast<int>(mode));
    return done;
}

int owner_changed(bool done, const char *path, uid_t uid, gid_t gid)
{
    if (!done)
        file_error("Error changing ownership of '%s' to uid=%d, gid=%d", path,
                   static_cast<int>(uid), static_cast<int>(gid));
    return done;
}

// Whether an owner can be set at all. Meant: without a group of its own the owner's number serves
// as one.
bool complete_owner(uid_t uid, gid_t &gid)
{
    constexpr auto unknown = static_cast<uid_t>(-1);
    if (gid == unknown)
        gid = uid;
    errno = 0;
    return uid != unknown;
}

// A directory is changed where it is open, so that no link can have taken its place. (One that
// could not be opened is not followed either, but not every system can do that by name.)
bool change_mode(const Scan &scan, const Scan *level, mode_t mode)
{
    if (level && level->is_open())
        return ::fchmod(level->directory(), mode) == 0;
    return ::fchmodat(scan.directory(), scan.entry()->name, mode,
                      level ? AT_SYMLINK_NOFOLLOW : 0) == 0;
}

} // namespace

int file_chmod(const File *x, mode_t mode)
{
    errno = 0;
    return x ? mode_changed(::chmod(x->name, mode) == 0, x->name, mode) : 0;
}

int file_chown(const File *x, uid_t uid, gid_t gid)
{
    if (!x || !complete_owner(uid, gid))
        return 0;
    return owner_changed(::chown(x->name, uid, gid) == 0, x->name, uid, gid);
}

int file_chmod(const Scan &scan, const Scan *level, mode_t mode)
{
    errno = 0;
    const bool done = change_mode(scan, level, mode);
    if (!done && is_gone(scan))
        return passed_over;
    return mode_changed(done, scan.entry()->path, mode);
}

int file_chown(const Scan &scan, uid_t uid, gid_t gid)
{
    if (!complete_owner(uid, gid))
        return 0;
    const Entry &entry = *scan.entry();
    const int flags = S_ISLNK(entry.kind) ? 0 : AT_SYMLINK_NOFOLLOW;
    const bool done = ::fchownat(scan.directory(), entry.name, uid, gid, flags) == 0;
    if (!done && is_gone(scan))
        return passed_over;
    return owner_changed(done, entry.path, uid, gid);
}
