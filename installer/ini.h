// The settings store: the run's one dictionary of named values, and the $(name) references between
// them and in texts. What a value may be is decided by two sets of flags, one of the store and one
// of each setting.
//
// Settings are found by their exact name; of several with one name only the first is ever found.
// Texts that a look-up returns belong to the store. Every function accepts a null store.
//
// Each setting has one cursor, which all readers share and which decides where an added value goes:
// reading a value moves it, so that a later addition comes first. That is why readers of values
// take a store that is not const.
#pragma once

#include <cstdint>

#include "array.h"
#include "linklist.h"

// How one setting behaves.
enum SettingMode : std::uint32_t {
    Ini_None = 0,
    Ini_Multi = 1,         // holds several values: adding appends
    Ini_Pass = 2,          // a password: logged as "xxxx"
    Ini_Replace = 4,       // may be referred to by other settings' values
    Ini_Path = 8,          // separators become '/'
    Ini_Empty = 16,        // an empty value is accepted
    Ini_Fixed = 32,        // no value may be added
    Ini_Lock = 32,         // reads give nothing; the store's mode tells it from Ini_Fixed
    Ini_XTRAMask = 0xffc0, // bits that select value transforms
};

// Which of these rules the store applies, and what settings made by adding get.
enum IniMode : std::uint32_t {
    Ini_Blank = 0,
    Ini_UseLock = 1,
    Ini_UseEmpty = 2,
    Ini_UsePass = 4,
    Ini_UseFixed = 8,
    Ini_UseMulti = 16,
    Ini_UsePath = 32,
    Ini_UseReplace = 64, // reserved
    Ini_UseNew = 128,    // adding to an unknown name makes the setting
    Ini_NewMulti = 256,
    Ini_NewEmpty = 512, // also: it may be made with an empty value
    Ini_NewFixed = 1024,
    Ini_NewPass = 2048,
    Ini_NewLock = 4096,
    Ini_NewModes = 7936,
    Ini_DefaultMode = 1022, // all but Ini_UseLock and the new fixed, password and lock flags
};

constexpr SettingMode operator|(SettingMode a, SettingMode b)
{
    return static_cast<SettingMode>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

constexpr IniMode operator|(IniMode a, IniMode b)
{
    return static_cast<IniMode>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

// One row of a table of settings. A row without a name ends the table.
struct SettingList {
    const char *setting;
    const char *dflt; // null: none; not used inside a store
    SettingMode mode;
};

// What a store holds for one setting.
struct Item {
    Linklist *values; // owned texts
    Linklist *assoc;  // owned ints: the settings whose value stands in when there is none
};

// A value transform: gives the text to store in place of the one added, and keeps owning it.
using IniLoadFn = const char *(*)(const char *value);

struct Ini {
    SettingList *list; // the rows, with their owned names, and an empty last row; null at first
    Array *xtra;       // transforms in the order registered; null until the first
    IniMode mode;
    std::int32_t items; // settings
    std::int32_t size;  // rows allocated, at least items + 1 once there are any
    Array *data;        // an Item for each row
};

// A new, empty store in Ini_DefaultMode.
[[nodiscard]] Ini *ini_init();

// Copies a table of settings into an empty store; with use_defaults each default becomes the first
// value. `associations` (null: none) holds pairs of indexes, from and to, ended by a from of -1.
void ini_setup(Ini *ini, const SettingList *table, const int *associations, int use_defaults);

// Register a transform for settings whose mode shares a bit with the flag, in place of an earlier
// one for the same flag.
void ini_setup_load_fn(Ini *ini, IniLoadFn transform, SettingMode flag);

// Set, add to or take from the store's mode.
void ini_setmode(Ini *ini, IniMode mode);
void ini_addmode(Ini *ini, IniMode mode);
void ini_rmvmode(Ini *ini, IniMode mode);

// The number of settings; the index of a name, -1 when unknown; the name at an index, or null.
int ini_items(const Ini *ini);
int ini_index(const Ini *ini, const char *name);
const char *ini_label(const Ini *ini, int index);

// All names in table order, or those that match a wildcard, in a new container. The caller
// releases the container; the names stay the store's, and come off the list with list_del first.
[[nodiscard]] Array *ini_label_array(const Ini *ini);
[[nodiscard]] Linklist *ini_label_list(const Ini *ini);
[[nodiscard]] Array *ini_label_wild(const Ini *ini, const char *pattern);

// A setting's mode; Ini_None when there is no such setting.
SettingMode ini_setting_mode(const Ini *ini, int index);
SettingMode ini_setting_mode_name(const Ini *ini, const char *name);

// The first value of a setting: its own, else that of its last association. Null when there is
// none. Moves the setting's value cursor to the start.
const char *ini_value(Ini *ini, int index);
const char *ini_value_name(Ini *ini, const char *name);

// The value of the setting that a text names, or, when there is none, the text itself.
const char *ini_value_or_text(Ini *ini, const char *text);

// The setting's next own value; null at the end.
const char *ini_value_next(Ini *ini, int index);
const char *ini_value_name_next(Ini *ini, const char *name);

// istrue and isfalse of a setting's value.
int ini_true(Ini *ini, int index);
int ini_false(Ini *ini, int index);

// Add a copy of a value: 1 added, -1 refused by a mode, 0 for nulls, an invalid index or an unknown
// name that may not be made. The value goes in at the setting's cursor: behind the others after
// adding alone, in front of them after a read.
int ini_add(Ini *ini, int index, const char *value);
int ini_add_name(Ini *ini, const char *name, const char *value);

// As ini_add, with a formatted value of at most 999 characters.
[[gnu::format(printf, 3, 4)]] int ini_add_format(Ini *ini, int index, const char *format, ...);

// Adds each text of an array, passing over refused ones. 1, or 0 for nulls and an invalid index.
int ini_add_array(Ini *ini, int index, Array *values);

// Detach a setting's first value, or the one at its cursor. The caller releases it with free; null
// when there is none.
[[nodiscard]] char *ini_remove(Ini *ini, int index);
[[nodiscard]] char *ini_remove_name(Ini *ini, const char *name);
[[nodiscard]] char *ini_remove_next(Ini *ini, int index);
[[nodiscard]] char *ini_remove_name_next(Ini *ini, const char *name);

// Writes the text with each $(name) replaced by the setting's value, or dropped when there is none,
// cut to size - 1 characters. One pass: inserted values are not looked at again. Nulls leave the
// result untouched.
void ini_replace(Ini *ini, const char *text, char *result, int size);

// The first $(name) in a text.
struct Reference {
    const char *begin; // at the "$"
    const char *end;   // behind the ")"; null: the text ends before one
    char name[1000];   // as written, cut at 999 characters
};

// Finds the first reference in a text (not null); false when there is none.
bool find_reference(const char *text, Reference &reference);

// Resolves the references between all stored values: to replaceable settings by their first own
// value, to other settings by nothing; those to unknown names stay. Names are compared without
// regard to case. A value is given up, and stays as it then is, after 100 replacements; one that
// grows beyond 999 characters is cut. Both are errors in the log. 1, or 0 without a table.
int ini_process(Ini *ini);

// Releases the store and clears the caller's pointer.
void ini_free(Ini **ini);
