#include "ini.h"

#include <algorithm>

#include <unistd.h>

#include "rows.h"
#include "support.h"

namespace {

class Settings : public InDirectory {
  protected:
    long errors() const
    {
        const auto lines = log_lines();
        return std::count_if(lines.begin(), lines.end(),
                             [](const std::string &line) { return line.starts_with("Error"); });
    }
};

// A store of settings written "name=value", without a value "name"; all of one mode.
Store table(std::vector<std::string> settings, SettingMode mode = Ini_None,
            const int *associations = nullptr)
{
    std::vector<SettingList> rows;
    for (std::string &setting : settings) {
        const size_t name_end = std::min(setting.find('='), setting.size());
        const char *value = name_end < setting.size() ? &setting[name_end + 1] : nullptr;
        setting[name_end] = '\0';
        rows.push_back({setting.c_str(), value, mode});
    }
    rows.push_back({});
    Store store(ini_init());
    ini_setup(store.get(), rows.data(), associations, 1);
    return store;
}

// All values of a setting in the order read, each ended by a comma.
std::string all(const Store &store, const char *name)
{
    std::string values;
    const char *value = ini_value_name(store.get(), name);
    for (; value; value = ini_value_name_next(store.get(), name))
        values += std::string(value) + ",";
    return values;
}

constexpr IniMode without(IniMode flag)
{
    return static_cast<IniMode>(Ini_DefaultMode & ~static_cast<unsigned>(flag));
}

TEST_F(Settings, ModesDecideWhatIsAdded)
{
    constexpr auto usual = Ini_DefaultMode;
    const struct {
        SettingMode mode;
        IniMode rules;
        const char *value;
        int result;
        const char *values, *logged;
    } rows[] = {{Ini_None, usual, "b", 1, "b,", "value for 'x' set to 'b'"},
                {Ini_None, usual, "", -1, "a,", "value for 'x' not added, value was empty"},
                {Ini_None, without(Ini_UseEmpty), "", 1, ",", "value for 'x' set to ''"},
                {Ini_None, without(Ini_UseMulti), "b", 1, "a,b,", "value for 'x' set to 'b'"},
                {Ini_Multi, usual, "b", 1, "a,b,", "value for 'x' set to 'b'"},
                {Ini_Pass, usual, "b", 1, "b,", "value for 'x' set to 'xxxx'"},
                {Ini_Pass, without(Ini_UsePass), "b", 1, "b,", "value for 'x' set to 'b'"},
                {Ini_Path, usual, "a\\b/c", 1, "a/b/c,", "value for 'x' set to 'a/b/c'"},
                {Ini_Path, without(Ini_UsePath), "a\\b", 1, "a\\b,", "value for 'x' set to 'a\\b'"},
                {Ini_Empty, usual, "", 1, ",", "value for 'x' set to ''"},
                {Ini_Fixed, usual, "", -1, "a,", "value for 'x' not addded, value is fixed"},
                {Ini_Fixed, without(Ini_UseFixed), "b", 1, "b,", "value for 'x' set to 'b'"},
                {Ini_Lock, Ini_UseLock, "b", 1, "", "value for 'x' set to 'b'"}};
    for (const auto &row : rows) {
        const Store store = table({"x=a"}, row.mode);
        ini_setmode(store.get(), row.rules);
        EXPECT_EQ(ini_add_name(store.get(), "x", row.value), row.result) << row.logged;
        EXPECT_EQ(log_lines().back(), std::string("Debug: Ini ") + row.logged);
        EXPECT_EQ(all(store, "x"), row.values) << row.logged;
    }
    const Store path = table({"x"}, Ini_Path);
    EXPECT_EQ(ini_add_format(path.get(), 0, "%s", std::string(1200, '\\').c_str()), 1);
    EXPECT_EQ(all(path, "x"), std::string(999, '/') + ",");
}

TEST_F(Settings, AddingToAnUnknownNameMakesTheSetting)
{
    const auto added = [](IniMode rules, const char *value) {
        const Store store(ini_init());
        ini_setmode(store.get(), rules);
        const int result = ini_add_name(store.get(), "x", value);
        return std::to_string(result) + ":" +
               std::to_string(ini_setting_mode_name(store.get(), "x"));
    };
    EXPECT_EQ(added(Ini_DefaultMode, ""), "1:17");
    EXPECT_TRUE(logged("Debug: Ini setting 'x' created and set to ''"));
    EXPECT_EQ(added(Ini_DefaultMode | Ini_NewModes, "b"), "1:51");
    EXPECT_TRUE(logged("Debug: Ini setting 'x' created and set to 'xxxx'"));
    EXPECT_EQ(added(without(Ini_NewEmpty), "") + added(without(Ini_UseNew), "b"), "-1:00:0");
}

TEST_F(Settings, ValuesAreAddedAtTheCursor)
{
    const Store store = store_of({{"answer", "a"}, {"answer", "b"}});
    EXPECT_EQ(ini_setting_mode_name(store.get(), "answer"), Ini_Multi | Ini_Empty);
    EXPECT_EQ(all(store, "answer"), "a,b,");
    ini_value_name(store.get(), "answer");
    ini_add_name(store.get(), "answer", "c");
    ini_add_name(store.get(), "answer", "d");
    EXPECT_EQ(all(store, "answer"), "c,d,a,b,");
    ini_value_name(store.get(), "answer");
    ini_value_name_next(store.get(), "answer");
    const Text second(ini_remove_name_next(store.get(), "answer"));
    const Text first(ini_remove(store.get(), 0));
    EXPECT_EQ(shown(second.get()) + shown(first.get()) + all(store, "answer"), "dca,b,");
    // A setting's own value may be added to it, also where it replaces itself.
    const Store single = table({"single=the one value of it"});
    for (const Store &owner : {std::cref(store), std::cref(single)})
        EXPECT_EQ(ini_add(owner.get(), 0, ini_value(owner.get(), 0)), 1);
    EXPECT_EQ(all(store, "answer") + all(single, "single"), "a,a,b,the one value of it,");
}

TEST_F(Settings, NamesAreFoundExactlyAndTheTableGrows)
{
    const Store store = table({"a=first", "a=second", "b"});
    for (int added = 3; added < 20; added++) {
        ini_add_name(store.get(), ("new" + std::to_string(added)).c_str(), "value");
        ASSERT_TRUE(store->size > store->items && !store->list[store->items].setting);
    }
    EXPECT_EQ(all(store, "a") + all(store, "A") + all(store, "b") + all(store, "new19"),
              "first,value,");
    EXPECT_TRUE(ini_items(store.get()) == 20 && ini_index(store.get(), "new11") == 11);
    const Owned<Array, array_free> names(ini_label_wild(store.get(), "n*1?"));
    EXPECT_EQ(names->items, 10);
    EXPECT_EQ(array_item<char>(names.get(), 9), ini_label(store.get(), 19));
}

TEST_F(Settings, TheLastAssociationDecides)
{
    const int pairs[] = {0, 3, 0, 5, 9, 1, -2, 1, 2, 1, 2, 4, -1};
    const Store store = table({"0", "1", "2", "3=three", "4=four", "5"}, Ini_None, pairs);
    EXPECT_EQ(all(store, "0") + all(store, "2"), "four,");
    for (const char *const line :
         {"Error: Ini association index 9 invalid.", "Error: Ini association index -2 invalid.",
          "Debug: Ini association index 2->4 added"})
        EXPECT_TRUE(logged(line)) << line;
    ini_add(store.get(), 5, "five");
    ini_add(store.get(), 2, "own");
    EXPECT_EQ(all(store, "0") + all(store, "2"), "five,own,");
}

TEST_F(Settings, AssociationsInACycleEnd)
{
    const int pairs[] = {0, 0, 0, 0, 1, 0, 1, 0, -1};
    const Store store = table(std::vector<std::string>(64, "same"), Ini_None, pairs);
    ::alarm(5);
    EXPECT_EQ(ini_value(store.get(), 1), nullptr);
    ::alarm(0);
}

template <char before> const char *marked(const char *value)
{
    static std::string text;
    return (text = before + std::string(value)).c_str();
}

TEST_F(Settings, HooksChangeValuesInTheOrderRegistered)
{
    constexpr auto first = static_cast<SettingMode>(64);
    constexpr auto second = static_cast<SettingMode>(128);
    const Store both = table({"x=dflt"}, first | second);
    const Store one = table({"x=dflt"}, second | Ini_Multi);
    for (Ini *const ini : {both.get(), one.get()}) {
        ini_setup_load_fn(ini, marked<'2'>, second);
        ini_setup_load_fn(ini, marked<'0'>, first);
        ini_setup_load_fn(ini, marked<'1'>, first);
        EXPECT_TRUE(
            log_lines().back().ends_with("] already set for flag [64], replacing with new fn"));
        ini_add(ini, 0, "x");
    }
    EXPECT_EQ(all(both, "x") + all(one, "x"), "12x,dflt,2x,");
    ini_add(both.get(), 0, std::string(999, 'y').c_str());
    EXPECT_EQ(all(both, "x"), "12" + std::string(997, 'y') + ",");
}

TEST_F(Settings, ArraysAreAddedByTheSameRules)
{
    const Store store = table({"x=old"});
    const Owned<Array, array_free> values(array_init(0));
    char texts[3][4] = {"1", "Off", ""};
    for (char *const text : texts)
        array_add(values.get(), text);
    EXPECT_EQ(ini_add_array(store.get(), 0, values.get()), 1);
    EXPECT_EQ(all(store, "x"), "Off,");
    EXPECT_TRUE(!ini_true(store.get(), 0) && ini_false(store.get(), 0));
}

TEST_F(Settings, ReplacingFillsATextInOnePass)
{
    const Store store = table({"base=/opt", "again=$(base)", "none"});
    const auto replaced = [&](const Fields &row) {
        std::vector<char> result(row.number<size_t>(1), '~');
        ini_replace(store.get(), row.text(0), result.data(), row.number<int>(1));
        return std::string(result.data());
    };
    expect_rows({"as it is|99=>as it is", "|9=>", "<$(base)$(base)>|99=></opt/opt>",
                 "<$(BASE)$(none)$(who)$()>|99=><>", "$(again)|99=>$(base)", "$($(base))|99=>)",
                 "a$(base|99=>a$(base", "$(base)$(|99=>/opt$(", "abc$(base)d|4=>abc",
                 "abc$(base)d|5=>abc/", "abc$(base)d|8=>abc/opt", "abc$(base)d|9=>abc/optd",
                 "abcd$(base)|4=>abc", "$(base)x|4=>/op", "$(base)$(base)x|5=>/opt", "$(base)|1=>",
                 "abc|3=>ab"},
                replaced);
}

TEST_F(Settings, ProcessingResolvesReferencesBetweenValues)
{
    const Store store =
        table({"bin=$(base)/bin", "base=/opt/app", "capitals=$(BASE)", "action=install",
               "lost=<$(action)$(empty)>", "empty", "unknown=$(who) $(base)",
               "twice=$(base):$(base)", "nested=$(a$(b))", "a1=inner", "b=1", "open=$(base) $(base",
               "big=" + std::string(600, 'x'), "cut=$(big)$(big)", "base=shadowed", "many=$(b)"},
              Ini_Replace | Ini_Multi);
    store->list[ini_index(store.get(), "action")].mode = Ini_None;
    ini_add_name(store.get(), "many", "$(b)$(b)");
    EXPECT_EQ(ini_process(store.get()), 1);
    expect_rows({"bin=>/opt/app/bin,", "capitals=>/opt/app,", "lost=><>,", "empty=>",
                 "unknown=>$(who) /opt/app,", "twice=>/opt/app:/opt/app,", "nested=>inner,",
                 "open=>/opt/app $(base,", "cut=>" + std::string(999, 'x') + ",", "many=>1,11,"},
                [&](const Fields &row) { return all(store, row.text(0)); });
    EXPECT_TRUE(logged(
        "Debug: Replaced '$(base)' in '$(base):$(base)' with '/opt/app' = '/opt/app:/opt/app'"));
    EXPECT_EQ(errors(), 0);
}

TEST_F(Settings, ReferencesInACycleEndAfterAHundredReplacements)
{
    const auto chain = [](int length) {
        std::vector<std::string> settings;
        for (int link = 0; link < length; link++)
            settings.push_back(std::to_string(link) + "=$(" + std::to_string(link + 1) + ")");
        settings.push_back(std::to_string(length) + "=end");
        Store store = table(settings, Ini_Replace);
        ini_process(store.get());
        return all(store, "0") + all(store, "1");
    };
    EXPECT_EQ(chain(100), "end,end,");
    EXPECT_EQ(errors(), 0);
    EXPECT_EQ(chain(101), "$(101),end,");
    EXPECT_EQ(errors(), 1);
    const Store store =
        table({"self=<$(self)", "same=$(same)", "one=$(two)", "two=$(one)"}, Ini_Replace);
    EXPECT_EQ(ini_process(store.get()), 1);
    EXPECT_EQ(all(store, "same"), "$(same),");
    EXPECT_EQ(errors(), 4);
}

TEST_F(Settings, NullsAreAnswered)
{
    const Store store = table({"a=value"});
    char text[8] = "same";
    ini_setmode(nullptr, Ini_Blank);
    ini_setup(store.get(), nullptr, nullptr, 1);
    ini_replace(nullptr, "text", text, 8);
    ini_replace(store.get(), nullptr, text, 8);
    EXPECT_FALSE(ini_items(nullptr) || ini_process(nullptr) || ini_process(store_of({}).get()) ||
                 ini_add_name(nullptr, "a", "b") || ini_add_name(store.get(), nullptr, "b") ||
                 ini_add_name(store.get(), "a", nullptr) || ini_add_array(store.get(), 0, nullptr));
    Ini *none = nullptr;
    for (const auto &[ini, index] : {std::pair(none, 0), {store.get(), -1}, {store.get(), 1}})
        EXPECT_FALSE(ini_label(ini, index) || ini_value(ini, index) || ini_value_next(ini, index) ||
                     ini_true(ini, index) || ini_setting_mode(ini, index) ||
                     ini_add(ini, index, "b") || Text(ini_remove(ini, index)) ||
                     Text(ini_remove_next(ini, index)));
    EXPECT_EQ(text + all(store, "a"), "samevalue,");
}

} // namespace
