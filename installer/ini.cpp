#include "ini.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "lib.h"
#include "log.h"

namespace {

// A value transform and the mode bits that select it.
struct Hook {
    IniLoadFn transform;
    SettingMode flag;
};

constexpr int replacements_most = 100;

using LabelArray = Owned<Array, array_free>;

bool is_valid(const Ini *ini, int index)
{
    return ini && index >= 0 && index < ini->items;
}

Item *item_at(const Ini *ini, int index)
{
    return is_valid(ini, index) ? array_item<Item>(ini->data, index) : nullptr;
}

bool has(const Ini *ini, IniMode flag)
{
    return (ini->mode & flag) != 0;
}

bool has(const SettingList &row, SettingMode flag)
{
    return (row.mode & flag) != 0;
}

// Null when the setting's values are locked against reading.
Item *readable_item(Ini *ini, int index)
{
    Item *item = item_at(ini, index);
    const bool locked = item && has(ini, Ini_UseLock) && has(ini->list[index], Ini_Lock);
    return locked ? nullptr : item;
}

Item *make_item(const char *value)
{
    Item *item = new Item{.values = list_init(), .assoc = list_init()};
    list_add(item->values, s_strdup(value));
    return item;
}

void free_item(void **slot)
{
    Item *item = static_cast<Item *>(*slot);
    list_free_dealloc(&item->values);
    list_free_dealloc(&item->assoc);
    delete item;
    *slot = nullptr;
}

void add_associations(Ini *ini, const int *pairs)
{
    for (; *pairs != -1; pairs += 2) {
        Item *item = item_at(ini, pairs[0]);
        if (!item) {
            emsg("Ini association index %d invalid.", pairs[0]);
            continue;
        }
        int *target = static_cast<int *>(std::malloc(sizeof(int)));
        if (!target)
            out_of_memory();
        *target = pairs[1];
        list_add(item->assoc, target);
        dmsg("Ini association index %d->%d added", pairs[0], pairs[1]);
    }
}

// What associations were found to give in one read, by index; one that is still being read gives
// nothing, which ends those that lead back to themselves.
using Known = std::vector<std::optional<const char *>>;

// The last association decides, even when it has no value. Every one is read, which rewinds its
// cursor.
const char *value_at(Ini *ini, int index, Known &known)
{
    const Item *item = readable_item(ini, index);
    if (!item)
        return nullptr;
    list_start(item->values);
    const void *own = list_get(item->values);
    if (own || list_items(item->assoc) == 0)
        return static_cast<const char *>(own);
    known.resize(static_cast<size_t>(ini->items));
    std::optional<const char *> &result = known[static_cast<size_t>(index)];
    if (result)
        return *result;
    result = nullptr;
    const char *value = nullptr;
    for (const Node *node = list_first(item->assoc); node; node = node->next)
        value = value_at(ini, *node_item<int>(node), known);
    result = value;
    return value;
}

const char *apply_transforms(const Ini *ini, SettingMode mode, const char *value,
                             char (&work)[line_size])
{
    if ((mode & Ini_XTRAMask) == 0 || !ini->xtra)
        return value;
    for (int index = 0; index < ini->xtra->items; index++) {
        const Hook *hook = array_item<Hook>(ini->xtra, index);
        if ((hook->flag & mode) != 0) {
            scpy(work, hook->transform(value));
            value = work;
        }
    }
    return value;
}

bool logged_hidden(const Ini *ini, const SettingList &row)
{
    return has(ini, Ini_UsePass) && has(row, Ini_Pass);
}

int add_value(Ini *ini, int index, const char *value)
{
    const SettingList &row = ini->list[index];
    char work[line_size];
    value = apply_transforms(ini, row.mode, value, work);
    if (has(ini, Ini_UsePath) && has(row, Ini_Path)) {
        scpy(work, value);
        value = setsep(work, '/');
    }
    if (has(ini, Ini_UseFixed) && has(row, Ini_Fixed)) {
        dmsg("Ini value for '%s' not addded, value is fixed", row.setting);
        return -1;
    }
    if (!*value && has(ini, Ini_UseEmpty) && !has(row, Ini_Empty)) {
        dmsg("Ini value for '%s' not added, value was empty", row.setting);
        return -1;
    }
    // Copied before an old value goes: the new one may be that same text.
    Text copy(s_strdup(value));
    Linklist *values = item_at(ini, index)->values;
    if (list_items(values) > 0 && has(ini, Ini_UseMulti) && !has(row, Ini_Multi))
        std::free(list_del(values));
    if (logged_hidden(ini, row))
        dmsg("Ini value for '%s' set to 'xxxx'", row.setting);
    else
        dmsg("Ini value for '%s' set to '%s'", row.setting, copy.get());
    return list_add(values, copy.release());
}

SettingMode new_setting_mode(const Ini *ini)
{
    SettingMode mode = Ini_None;
    if (has(ini, Ini_NewMulti))
        mode = mode | Ini_Multi;
    if (has(ini, Ini_NewPass))
        mode = mode | Ini_Pass;
    if (has(ini, Ini_NewFixed))
        mode = mode | Ini_Fixed;
    if (has(ini, Ini_NewEmpty))
        mode = mode | Ini_Empty;
    if (has(ini, Ini_NewLock))
        mode = mode | Ini_Lock;
    return mode;
}

int create_setting(Ini *ini, const char *name, const char *value)
{
    if (!*value && !has(ini, Ini_NewEmpty))
        return -1;
    if (ini->size <= ini->items + 1) {
        constexpr int growth = 5;
        if (!grow_table(ini->list, static_cast<size_t>(ini->size), growth)) {
            emsg("Memory allocation error");
            return 0;
        }
        ini->size += growth;
    }
    Item *item = make_item(value);
    if (!array_add_num(ini->data, item, ini->items)) {
        void *slot = item;
        free_item(&slot);
        return 0;
    }
    SettingList &row = ini->list[ini->items++];
    row = {.setting = s_strdup(name), .dflt = nullptr, .mode = new_setting_mode(ini)};
    if (logged_hidden(ini, row))
        dmsg("Ini setting '%s' created and set to 'xxxx'", name);
    else
        dmsg("Ini setting '%s' created and set to '%s'", name, value);
    return 1;
}

// --- References ------------------------------------------------------------------------------

int index_any_case(const Ini *ini, const char *name)
{
    for (int index = 0; index < ini->items; index++)
        if (s_stricmp(ini->list[index].setting, name) == 0)
            return index;
    return -1;
}

// What stands in for a reference between stored values; null: nothing. Cursors are left alone.
const char *replacement_for(const Ini *ini, int index)
{
    if (!has(ini->list[index], Ini_Replace))
        return nullptr;
    return node_item<char>(list_first(item_at(ini, index)->values));
}

// Replaces a reference wherever it stands in a value; false when the result had to be cut.
bool replace_in_value(const Ini *ini, int target, const char *name, Node *value)
{
    const char *replacement = replacement_for(ini, target);
    char reference[line_size + 4];
    lprintf(reference, std::size(reference), "$(%s)", name);
    char result[line_size];
    BoundedText replaced(result, line_size);
    replaced.append_replaced(node_item<char>(value), reference, replacement);
    dmsg("Replaced '%s' in '%s' with '%s' = '%s'", reference, node_item<char>(value), replacement,
         result);
    std::free(std::exchange(value->data, s_strdup(result)));
    return !replaced.is_cut();
}

void process_value(const Ini *ini, int index, Node *value)
{
    const char *name = ini->list[index].setting;
    int replacements = 0;
    bool whole = true;
    Reference reference;
    const char *scan = node_item<char>(value);
    while (find_reference(scan, reference) && reference.end) {
        const int target = index_any_case(ini, reference.name);
        if (target < 0) {
            scan = reference.begin + 1;
            continue;
        }
        if (++replacements > replacements_most) {
            emsg("The value of '%s' was given up after %d replacements, left as '%s'", name,
                 replacements_most, node_item<char>(value));
            break;
        }
        whole = replace_in_value(ini, target, reference.name, value) && whole;
        scan = node_item<char>(value);
    }
    if (!whole)
        emsg("The value of '%s' was cut at %d characters", name, line_size - 1);
}

} // namespace

Ini *ini_init()
{
    return new Ini{.list = nullptr,
                   .xtra = nullptr,
                   .mode = Ini_DefaultMode,
                   .items = 0,
                   .size = 0,
                   .data = array_init(0)};
}

void ini_setup(Ini *ini, const SettingList *table, const int *associations, int use_defaults)
{
    if (!ini || !table)
        return;
    int count = 0;
    while (table[count].setting)
        count++;
    ini->list = nullptr;
    if (!grow_table(ini->list, 0, static_cast<size_t>(count) + 1)) {
        emsg("Memory allocation error");
        return;
    }
    for (int index = 0; index < count; index++) {
        const SettingList &row = table[index];
        ini->list[index] = {.setting = s_strdup(row.setting), .dflt = nullptr, .mode = row.mode};
        array_keep(ini->data, make_item(use_defaults ? row.dflt : nullptr));
        dmsg("Ini setting '%s' setup", row.setting);
    }
    ini->items = count;
    ini->size = count + 1;
    if (associations)
        add_associations(ini, associations);
}

void ini_setup_load_fn(Ini *ini, IniLoadFn transform, SettingMode flag)
{
    if (!ini || !transform)
        return;
    const auto address = [](IniLoadFn function) { return reinterpret_cast<void *>(function); };
    if (!ini->xtra)
        ini->xtra = array_init(0);
    for (int index = 0; index < ini->xtra->items; index++) {
        Hook *hook = array_item<Hook>(ini->xtra, index);
        if (hook->flag == flag) {
            imsg("Load fn [%p] already set for flag [%d], replacing with new fn",
                 address(hook->transform), static_cast<int>(flag));
            hook->transform = transform;
            return;
        }
    }
    imsg("New load fn [%p] set for flag [%d]", address(transform), static_cast<int>(flag));
    array_keep(ini->xtra, new Hook{.transform = transform, .flag = flag});
}

void ini_setmode(Ini *ini, IniMode mode)
{
    if (ini)
        ini->mode = mode;
}

void ini_addmode(Ini *ini, IniMode mode)
{
    if (ini)
        ini->mode = ini->mode | mode;
}

void ini_rmvmode(Ini *ini, IniMode mode)
{
    if (ini)
        ini->mode = static_cast<IniMode>(ini->mode & ~static_cast<std::uint32_t>(mode));
}

int ini_items(const Ini *ini)
{
    return ini ? ini->items : 0;
}

int ini_index(const Ini *ini, const char *name)
{
    if (!ini || !name)
        return -1;
    for (int index = 0; index < ini->items; index++) {
        const char *label = ini->list[index].setting;
        if (label[0] == name[0] && s_strcmp(label, name) == 0)
            return index;
    }
    return -1;
}

const char *ini_label(const Ini *ini, int index)
{
    return is_valid(ini, index) ? ini->list[index].setting : nullptr;
}

Array *ini_label_array(const Ini *ini)
{
    return ini ? ini_label_wild(ini, "*") : nullptr;
}

Linklist *ini_label_list(const Ini *ini)
{
    if (!ini)
        return nullptr;
    Linklist *labels = list_init();
    for (int index = 0; index < ini->items; index++)
        list_add(labels, const_cast<char *>(ini->list[index].setting));
    return labels;
}

Array *ini_label_wild(const Ini *ini, const char *pattern)
{
    if (!ini || !pattern)
        return nullptr;
    LabelArray labels(array_init(0));
    for (int index = 0; index < ini->items; index++)
        if (wild_match(ini->list[index].setting, pattern))
            array_keep(labels.get(), const_cast<char *>(ini->list[index].setting));
    return labels.release();
}

SettingMode ini_setting_mode(const Ini *ini, int index)
{
    return is_valid(ini, index) ? ini->list[index].mode : Ini_None;
}

SettingMode ini_setting_mode_name(const Ini *ini, const char *name)
{
    return ini_setting_mode(ini, ini_index(ini, name));
}

const char *ini_value(Ini *ini, int index)
{
    Known known;
    return value_at(ini, index, known);
}

const char *ini_value_name(Ini *ini, const char *name)
{
    return ini_value(ini, ini_index(ini, name));
}

const char *ini_value_or_text(Ini *ini, const char *text)
{
    const char *value = ini_value_name(ini, text);
    return value ? value : text;
}

const char *ini_value_next(Ini *ini, int index)
{
    const Item *item = readable_item(ini, index);
    return item ? static_cast<const char *>(list_get_next(item->values)) : nullptr;
}

const char *ini_value_name_next(Ini *ini, const char *name)
{
    return ini_value_next(ini, ini_index(ini, name));
}

int ini_true(Ini *ini, int index)
{
    return istrue(ini_value(ini, index));
}

int ini_false(Ini *ini, int index)
{
    return isfalse(ini_value(ini, index));
}

int ini_add(Ini *ini, int index, const char *value)
{
    return is_valid(ini, index) && value ? add_value(ini, index, value) : 0;
}

int ini_add_name(Ini *ini, const char *name, const char *value)
{
    if (!ini || !name || !value)
        return 0;
    const int index = ini_index(ini, name);
    if (index >= 0)
        return add_value(ini, index, value);
    return has(ini, Ini_UseNew) ? create_setting(ini, name, value) : 0;
}

int ini_add_format(Ini *ini, int index, const char *format, ...)
{
    if (!format)
        return 0;
    char value[line_size];
    va_list arguments;
    va_start(arguments, format);
    vlprintf(value, line_size, format, arguments);
    va_end(arguments);
    return ini_add(ini, index, value);
}

int ini_add_array(Ini *ini, int index, Array *values)
{
    if (!is_valid(ini, index) || !values)
        return 0;
    for (int item = 0; item < values->items; item++)
        ini_add(ini, index, array_item<char>(values, item));
    return 1;
}

char *ini_remove(Ini *ini, int index)
{
    if (const Item *item = item_at(ini, index))
        list_start(item->values);
    return ini_remove_next(ini, index);
}

char *ini_remove_name(Ini *ini, const char *name)
{
    return ini_remove(ini, ini_index(ini, name));
}

char *ini_remove_next(Ini *ini, int index)
{
    const Item *item = item_at(ini, index);
    return item ? static_cast<char *>(list_del(item->values)) : nullptr;
}

char *ini_remove_name_next(Ini *ini, const char *name)
{
    return ini_remove_next(ini, ini_index(ini, name));
}

bool find_reference(const char *text, Reference &reference)
{
    reference.begin = std::strstr(text, "$(");
    if (!reference.begin)
        return false;
    const char *name = reference.begin + 2;
    const char *close = std::strchr(name, ')');
    reference.end = close ? close + 1 : nullptr;
    schunk(name, ")", reference.name, line_size);
    return true;
}

void ini_replace(Ini *ini, const char *text, char *result, int size)
{
    if (!ini || !text || !result || size < 1)
        return;
    BoundedText filled(result, static_cast<size_t>(size));
    Reference reference;
    while (find_reference(text, reference) && reference.end) {
        const size_t before = static_cast<size_t>(reference.begin - text);
        if (before > filled.room())
            break;
        filled.append({text, before});
        if (const char *value = ini_value_name(ini, reference.name))
            filled.append(value);
        text = reference.end;
    }
    filled.append(text);
}

int ini_process(Ini *ini)
{
    if (!ini || !ini->list)
        return 0;
    dmsg("Processing replacable settings...");
    for (int index = 0; index < ini->items; index++)
        for (Node *node = list_first(item_at(ini, index)->values); node; node = node->next)
            process_value(ini, index, node);
    dmsg("Finished processing replacable settings");
    return 1;
}

void ini_free(Ini **ini)
{
    if (!ini || !*ini)
        return;
    array_free_fn(&(*ini)->data, free_item);
    array_free_fn(&(*ini)->xtra, [](void **hook) { delete static_cast<Hook *>(*hook); });
    for (int index = 0; index < (*ini)->items; index++)
        std::free(const_cast<char *>((*ini)->list[index].setting));
    std::free((*ini)->list);
    delete *ini;
    *ini = nullptr;
}
