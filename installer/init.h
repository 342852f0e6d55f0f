// The init script: probes of the host, one command a line, run once before anything is asked. Each
// stores its outcome in the settings store.
#pragma once

struct Array;
struct Ini;

enum IItemMode : unsigned {
    IExist = 1,
    ICopy = 2,
    IHTTP = 16, // the bit that the four web server kinds share
    IHTTP_User = 20,
    IHTTP_Group = 24,
    IHTTP_Root = 272,
    IHTTP_Scripts = 528,
    ITimeDate = 1024,
    IWFile = 2048,
    IRFile = 4096,
};

// One command line; all texts are owned.
struct init_item {
    char *a;
    char *b;
    char *compare; // null ("-" in the file): runs always; else the control must equal it
    char *control; // a setting, or a literal when it has no value; null: "-" in the file
    IItemMode mode;
};
using pIItem = init_item *;

struct init {
    Array *list; // init_item, in file order
};
using pInit = init *;

// The command words by number, null behind the last, and the command that a word stands for. Four
// fields follow each of them.
const char *init_word(unsigned number);
IItemMode init_word_mode(unsigned number);

// Takes a line apart, which changes it, and fills in an item; true when the line had all fields, so
// that the item is complete. What the line does not set, or gives as "-", the item keeps, as short
// lines are completed by later ones. An unknown word is logged.
bool init_parse(char *line, init_item &item);

// A new, empty script.
[[nodiscard]] pInit init_init();

// Appends the commands of a script file: 1, or 0 for nulls and a file that cannot be read, with the
// reason in init_error.
int init_load(pInit script, const char *file);

// The last load error, "" when there was none; set it (at most 999 characters).
const char *init_error();
[[gnu::format(printf, 1, 2)]] void init_seterror(const char *format, ...);

// Cursor access as in array.h: item n; the next item; setting and moving the cursor.
pIItem init_get_num(pInit script, int n);
pIItem init_get(pInit script);
void init_goto(pInit script, int n);
void init_start(pInit script);
void init_next(pInit script);
void init_prev(pInit script);

// Whether an item runs now: one without a comparison always does, one that compares nothing never.
bool init_is_wanted(const init_item &item, Ini *ini);

// Runs every command once, in file order, against the store. Nothing stops it; a web server fact
// that is not found is told on standard output.
void init_run(pInit script, Ini *ini);

// Looks up facts of the web server in the first configuration file that opens. Each value buffer
// (1000 characters) may be null: not wanted. 1 when all wanted facts are known, else 0 with the
// reason in errmsg (1000 characters, may be null). Found facts are kept for the run.
int init_find_http_conf(char *user, char *group, char *root, char *scripts, char *errmsg);

// Release one item, or the script; clear the caller's pointer.
void init_item_free(pIItem *item);
void init_free(pInit *script);
