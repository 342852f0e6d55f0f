// Everything that touches the disk: scanning a directory by wildcard, copying, moving, creating and
// removing files and trees, changing modes and owners, looking up users and groups.
//
// Operations answer 1 for success and 0 for failure, those on many files with a count. They log
// what failed with the system's reason and go on where they can; what creates or removes something
// also tells two process-wide progress callbacks. Each operation clears errno where it begins.
// Paths are at most 255 characters.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

// A directory entry or a looked-up path.
struct file {
    char name[256];   // the full path
    char *link;       // owned: what a symbolic link points to; meaningful only for a link
    struct stat info; // of the entry itself, a link not being followed
};
using File = file;

// A scan in progress.
struct xfilehandle {
    char *path;  // owned: the directory
    char *wild;  // owned: the pattern
    DIR *handle; // the open stream
};
using FHandle = xfilehandle;

// Told about progress: what was worked on, the destination or null, and a mode (1 for what was
// created, 0 for what was removed).
using FileFn = void (*)(char *source, char *destination, int mode);

// The pair of progress callbacks; null: not told.
struct file_setup_inf {
    FileFn xok;
    FileFn xfail;
};
using FSInf = file_setup_inf;

// Set both callbacks; set them from a pair; store the current pair, to be put back later.
void file_setup_fn(FileFn xok, FileFn xfail);
void file_setup(const FSInf *inf);
void file_old_setup(FSInf *inf);

// Logs an error with ", " and the system's reason for the current errno. A null format is ignored.
[[gnu::format(printf, 1, 2)]] void file_error(const char *format, ...);

// --- Looking ---------------------------------------------------------------------------------

// Opens a scan of a directory for the names that match a wildcard (with regard to case) and
// returns a new record of the first; null, with *h null, when there is none or the directory
// cannot be opened (which is logged). "." and ".." are never met; nothing is sorted.
[[nodiscard]] File *file_first(FHandle **h, const char *path, const char *wild);

// Refills the record with the next match: 1, or 0 at the end. An entry whose full path does not fit
// is passed over with an error in the log; one that has vanished, silently.
int file_next(File *x, FHandle *h);

// Close a scan; release a record. Both clear the caller's pointer and accept null.
void file_last(FHandle **h);
void file_free(File **x);

// Refreshes info (and link) for the name in the record: 1, or 0 for null and when there is nothing.
int file_stat(File *x);

// A new record for one path; null when there is nothing of that name.
[[nodiscard]] File *file_existf(const char *path);

// A copy that shares nothing with the record; null for null.
[[nodiscard]] File *file_dup(const File *x);

// The record's own name; null for null.
char *file_name(File *x);

// The last component of the name, at most bfsz characters: the buffer holds bfsz + 1. Returns the
// buffer; null for nulls.
char *file_filename(const File *x, char *buffer, unsigned bfsz);

// The directory part of the name, of which bfsz - 1 characters are looked at: empty without a
// separator and when the only one comes first. Returns the buffer; null for nulls.
char *file_path(const File *x, char *buffer, unsigned bfsz);

// True when the directory at a path has any entry; false also when it cannot be opened (logged).
bool has_entries(const char *path);

// What a scan knows of the entry it is at.
struct Entry {
    char path[256];   // the scanned directory joined with the name
    const char *name; // inside the path
    mode_t kind;      // its type bits, a link not being followed; it may have changed since
};

bool is_directory(const Entry &entry);

// A scan that closes itself and asks for no more than the work on whole trees needs:
//
//     for (Scan scan(path, wild); scan.entry(); scan.next())
//
// It meets what file_first and file_next meet. Most directories tell the kind of their entries,
// which spares another look at the disk; so an entry may have gone, or be something else, when it
// is worked on. The directory stays open until the scan ends: whatever is done with an entry goes
// by its own name there, and whoever swaps a directory above it for a link changes nothing.
class Scan {
  public:
    Scan(const char *path, const char *wild);
    ~Scan() { file_last(&handle); }
    Scan(const Scan &) = delete;
    Scan &operator=(const Scan &) = delete;

    // A scan of all that is in the current entry, a directory. It never leads through a link.
    Scan below() const;

    // False when the directory could not be opened (logged, except when it has gone).
    bool is_open() const { return handle != nullptr; }

    // True when what was a directory has gone, cannot be examined, or is none any more: there is
    // nothing to do about it.
    bool is_lost() const { return lost; }

    // The current match, refilled by next; null when there is none left.
    const Entry *entry() const { return more ? &record : nullptr; }
    void next();

    // The open directory.
    int directory() const { return ::dirfd(handle->handle); }

  private:
    Scan(int above, const Entry &start);

    FHandle *handle; // null: not open
    Entry record = {};
    bool more = false;
    bool lost = false;
};

// What stands at a path, links followed: 0 nothing (or null), 1 not a directory, 2 a directory.
int file_exist(const char *path);

// The mode of what a path leads to, links followed; 0 when there is nothing.
mode_t file_mode(const char *path);

// True when both paths, links followed, lead to one and the same file.
bool is_same_file(const char *a, const char *b);

// Ids by name, the last being the user's own group; -1 when unknown.
int file_getuid(const char *name);
int file_getgid(const char *name);
int file_usergid(const char *name);

// --- Acting ----------------------------------------------------------------------------------

// Copies the content of one file: 1 copied, 0 failed, -1 left alone because the destination exists
// and overwrite is 0. The destination has the default mode; a source that is missing or cannot be
// opened leaves it empty. The length of each block of 8192 bytes is added to *bytes (null: not
// counted) once it is written. A file is not copied onto itself, and a FIFO, socket or device is
// not opened.
int file_copy(const char *src, const char *dst, int overwrite, unsigned long *bytes);

// Copies what matches a wildcard (null: all) and no pattern of `not_list` (null: none excluded)
// into the directory dst, made when missing; with recurse whole trees, without it directories come
// over empty. Returns the number of items made. A directory is not copied into itself, directly or
// through a link that stands in the destination (logged).
int file_xcopy(const char *path, const char *wild, const char *not_list, const char *dst,
               int recurse, unsigned long *bytes);

// Copies one file and removes the source, also when the copy was skipped since the destination
// exists. 1, or 0 when either failed.
int file_move(const char *src, const char *dst, int overwrite, unsigned long *bytes);

// As file_xcopy, moving; recurse is also what decides whether files are overwritten. Returns the
// number of items moved.
int file_xmove(const char *path, const char *wild, const char *not_list, const char *dst,
               int recurse, unsigned long *bytes);

// Makes a directory with mode 0775 before the umask; with make_all also those above it. 1 when it
// is there afterwards, whoever made it.
int file_mkdir(const char *dir, int make_all);

// Removes a directory; with recurse first what is in it, except what matches `not_list`. Returns
// the number of items removed.
int file_rmdir(const char *dir, const char *not_list, int recurse);

// Change what a record's name stands for, links followed. A uid of -1 is refused silently; a gid of
// -1 becomes the number of the uid.
int file_chmod(const File *x, mode_t mode);
int file_chown(const File *x, uid_t uid, gid_t gid);

// --- Acting on the current entry of a scan ----------------------------------------------------
//
// As above, by the entry's own name in the open directory. What was no link when the scan met it is
// not followed as one, but for the mode of what is no directory: not every system can leave a link
// there alone. An entry that has gone or cannot be examined any more is passed over: it is neither
// told nor logged as an error, and costs a destination nothing.

// Copies the entry into the directory dst, over what is there: a file, or a directory with all in
// it that matches no pattern of `not_list`. Returns the number of items made.
int file_xcopy(const Scan &scan, const char *not_list, const char *dst, unsigned long *bytes);

// Removes an entry that is no directory: 1, or 0 without a word.
int file_remove(const Scan &scan);

// Removes a directory and what is in it, except what matches `not_list`. Returns the number of
// items removed.
int file_rmdir(const Scan &scan, const char *not_list);

// 1, or 0 when that failed, or -1 when the entry is passed over. `level` is the scan below the
// entry when that is a directory, null when it is none.
int file_chmod(const Scan &scan, const Scan *level, mode_t mode);
int file_chown(const Scan &scan, uid_t uid, gid_t gid);
