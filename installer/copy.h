// The copy script: what a flow does to the disk. One section of the script is loaded into a list of
// commands, their $(name) references being filled in at once, and run in order.
#pragma once

#include <sys/types.h>

#include "file.h"

struct Ini;

enum CType : unsigned {
    Cpy = 256, // the mark of the copying family
    CpyFile = 257,
    CpyDir = 258,
    MkDir = 260,
    CpyIni = 264,
    Rename = 272,
    Rm = 512, // the mark of the removing family
    RmFile = 513,
    RmDir = 514,
    Exist = 1024,
    Chown = 2048,
    Chmod = 2049,
    Error = 4096,
    WFile = 8192,
    RFile = 16384,
};

// One command; all texts are owned heap copies or null.
struct copy_cmd {
    char *source;
    char *dest;        // for Error: the message
    char *not_;        // exclusion patterns; null: none. (The plain word is an operator in C++.)
    char *control;     // the setting that decides whether it runs; null: always
    char *control_cmp; // a setting or a literal to compare that with; null: none
    CType type;        // 0: a word that is not known
};
using pCCmd = copy_cmd *;

struct copy {
    copy_cmd *list;
    Ini *ini; // not owned; null: no references are filled in
    unsigned count;
};
using pCopy = copy *;

// The fields that must follow a command word, in file order. All commands but those with a message
// may go on with a control and what to compare it with.
enum command_field : unsigned {
    needs_source = 1,
    needs_not = 2,
    needs_dest = 4,
    has_message = 8, // the rest of the line, as it stands
};

// The command words by number, null behind the last; the kind that a word stands for and the sum of
// its fields, 0 behind the last.
const char *copy_word(unsigned number);
CType copy_word_type(unsigned number);
unsigned copy_word_fields(unsigned number);

// Takes a line of a section apart, which changes it, and fills in an empty command; false when a
// field is missing. What is wrong with the line is logged. References and "-" stay as they are
// written. The texts go with copy_release.
bool copy_parse(char *line, copy_cmd &command);

// Releases the texts of a command; it keeps its type.
void copy_release(copy_cmd &command);

// A new, empty script bound to a store.
[[nodiscard]] pCopy copy_init(Ini *ini);

// Installs the progress callbacks of all file operations.
void copy_setup(pCopy x, FileFn ok, FileFn fail);

// Loads a section, in place of an earlier one: 1 when it was found, 0 for nulls, a file that cannot
// be read and a section that is not there. Faulty lines are logged; incomplete ones are dropped.
int copy_load(pCopy x, const char *file, const char *section);

// Completes a loaded command: fills in the references of its source and destination, and takes "-"
// as no exclusions.
void copy_processpaths(pCopy x, int index);

// A new heap text with the references of a text filled in, those to unknown names staying; null for
// nulls and a text without any.
[[nodiscard]] char *replace_vars(const copy *x, const char *string);

// The number of commands, and the fields of one: null for a null script or an invalid index.
unsigned copy_count(const copy *x);
const char *copy_src(const copy *x, unsigned index);
const char *copy_dst(const copy *x, unsigned index);
const char *copy_not(const copy *x, unsigned index);
const char *copy_control(const copy *x, unsigned index);
const char *copy_control_cmp(const copy *x, unsigned index);

// 1 when the command is of that kind; 0 for a null script or an invalid index.
int copy_cpyfile(const copy *x, unsigned index);
int copy_cpydir(const copy *x, unsigned index);
int copy_mkdir(const copy *x, unsigned index);
int copy_rmdir(const copy *x, unsigned index);
int copy_rmfile(const copy *x, unsigned index);
int copy_ini(const copy *x, unsigned index);

// The directory part of a field, up to its last separator (without one: the working directory), and
// the part behind it (a source without one: the whole field; ending in one: "*"; a destination in
// either case: null). They return the buffer; null for an invalid index or a null field or buffer.
char *copy_src_path(const copy *x, unsigned index, char *buffer, unsigned bfsz);
char *copy_src_file(const copy *x, unsigned index, char *buffer, unsigned bfsz);
char *copy_dst_path(const copy *x, unsigned index, char *buffer, unsigned bfsz);
char *copy_dst_file(const copy *x, unsigned index, char *buffer, unsigned bfsz);

// Runs all commands in order. *files counts the items handled, *bytes what was copied; either may
// be null. 1 when the end was reached, 0 for null and when a failing command stopped the run.
int copy_process(pCopy x, unsigned long *files, unsigned long *bytes, int stop_on_fail);

// Runs one command: the number of items it handled, 0 for failure, -1 when its controlling setting
// said no.
int copy_do(pCopy x, unsigned index, unsigned long *bytes);

// The commands with a procedure of their own, each giving its count, 0 for failure. copy_exist
// always succeeds; copy_rfile empties the file, as it always has.
int copy_chown(pCopy x, unsigned index);
int copy_chmod(pCopy x, unsigned index);
int copy_write_ini(pCopy x, unsigned index);
int copy_rename(pCopy x, unsigned index);
int copy_exist(pCopy x, unsigned index);
int copy_wfile(pCopy x, unsigned index);
int copy_rfile(pCopy x, unsigned index);
int copy_seterror(pCopy x, unsigned index);

// Change the owner or the mode of what matches `file` in a directory, and of all that is below,
// except full paths that match `not_list`. They return the number of entries changed.
int dochown(const char *path, const char *file, const char *not_list, uid_t uid, gid_t gid);
int dochmod(const char *path, const char *file, const char *not_list, mode_t mode);

// The message of the last Error command that failed; "" when there was none.
const char *copy_error();

// Logs an error, with the system's reason when errno tells one.
[[gnu::format(printf, 1, 2)]] void cerror(const char *format, ...);

// Releases the script and clears the caller's pointer.
void copy_free(pCopy *x);
