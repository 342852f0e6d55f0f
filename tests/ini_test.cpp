#include "ini.h"

#include <algorithm>

#include "rows.h"
#include "support.h"

namespace {

using Settings = InDirectory;

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

TEST_F(Settings, ModesDecideWhatIsAdded)
{
    const struct {
        SettingMode mode;
        const char *value;
        int result;
        const char *values, *logged;
    } rows[] = {{Ini_None, "b", 1, "b,", "value for 'x' set to 'b'"},
                {Ini_None, "", -1, "a,", "value for 'x' not added, value was empty"},
                {Ini_Multi, "b", 1, "a,b,", "value for 'x' set to 'b'"},
                {Ini_Empty, "", 1, ",", "value for 'x' set to ''"},
                {Ini_Fixed, "", -1, "a,", "value for 'x' not addded, value is fixed"}};
    for (const auto &row : rows) {
        const Store store = table({"x=a"}, row.mode);
        EXPECT_EQ(ini_add_name(store.get(), "x", row.value), row.result) << row.logged;
        EXPECT_EQ(log_lines().back(), std::string("Debug: Ini ") + row.logged);
        EXPECT_EQ(all(store, "x"), row.values) << row.logged;
    }
    const Store created = store_of({{"x", ""}});
    EXPECT_EQ(ini_setting_mode_name(created.get(), "x"), Ini_Multi | Ini_Empty);
    EXPECT_TRUE(logged("Debug: Ini setting 'x' created and set to ''"));
}

TEST_F(Settings, ValuesAreAddedAndRemovedAtTheCursor)
{
    const Store store = store_of({{"answer", "a"}, {"answer", "b"}});
    EXPECT_EQ(all(store, "answer"), "a,b,");
    ini_value_name(store.get(), "answer");
    ini_add_name(store.get(), "answer", "c");
    ini_add_name(store.get(), "answer", "d");
    EXPECT_EQ(all(store, "answer"), "c,d,a,b,");
    const Text first(ini_remove_name(store.get(), "answer"));
    const Text next(ini_remove_name_next(store.get(), "answer"));
    EXPECT_EQ(shown(first.get()) + shown(next.get()) + all(store, "answer"), "cda,b,");
    // A setting's own value may be added to it, also where it replaces itself.
    const Store single = table({"single=the one value of it"});
    for (const Store &owner : {std::cref(store), std::cref(single)})
        EXPECT_EQ(ini_add(owner.get(), 0, ini_value(owner.get(), 0)), 1);
    EXPECT_EQ(all(store, "answer") + all(single, "single"), "a,a,b,the one value of it,");
}

TEST_F(Settings, NamesAreFoundExactlyAndTheTableGrows)
{
    const Store store = table({"a=first", "a=second", "b"});
    for (int added = 3; added < 20; added++)
        ini_add_name(store.get(), ("new" + std::to_string(added)).c_str(), "value");
    EXPECT_EQ(all(store, "a") + all(store, "A") + all(store, "b") + all(store, "new19"),
              "first,value,");
    EXPECT_TRUE(ini_items(store.get()) == 20 && ini_index(store.get(), "new11") == 11);
    EXPECT_FALSE(ini_value(store.get(), -1) || ini_value(store.get(), 20) || ini_items(nullptr));
}

TEST_F(Settings, TheLastAssociationDecides)
{
    const int pairs[] = {0, 3, 9, 1, 0, 4, 5, 5, -1};
    const Store store = table({"0", "1", "2", "3=three", "4=yes", "5"}, Ini_None, pairs);
    EXPECT_EQ(all(store, "0") + all(store, "5"), "yes,");
    EXPECT_TRUE(ini_true(store.get(), 0) && !ini_true(store.get(), 5));
    EXPECT_EQ(new_errors(), "Ini association index 9 invalid.");
}

TEST_F(Settings, ValuesOfAnArrayAreTransformed)
{
    constexpr auto flag = static_cast<SettingMode>(64);
    const Store store = table({"x=a", "xy"}, flag);
    ini_setup_load_fn(
        store.get(), [](const char *value) { return value + 1; }, flag);
    const Owned<Array, array_free> labels(ini_label_wild(store.get(), "x*"));
    EXPECT_EQ(ini_add_array(store.get(), 0, labels.get()), 1);
    EXPECT_EQ(all(store, "x"), "y,");
}

TEST_F(Settings, ReplacingFillsATextInOnePass)
{
    const Store store = table({"base=/opt", "again=$(base)", "none"});
    const auto replaced = [&](const Fields &row) {
        std::vector<char> result(row.number<size_t>(1), '~');
        ini_replace(store.get(), row.text(0), result.data(), row.number<int>(1));
        return std::string(result.data());
    };
    expect_rows({"|9=>", "<$(base)$(base)>|99=></opt/opt>", "<$(BASE)$(none)$(who)$()>|99=><>",
                 "$(again)|99=>$(base)", "$($(base))|99=>)", "a$(base|99=>a$(base",
                 "abc$(base)d|4=>abc", "abc$(base)d|5=>abc/", "abc$(base)d|8=>abc/opt",
                 "abc$(base)d|9=>abc/optd", "$(base)|1=>", "abc|3=>ab"},
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
    EXPECT_EQ(new_errors(), "The value of 'cut' was cut at 999 characters");
}

// What processing makes of the setting x, and what it says about it.
TEST_F(Settings, ReferencesWithoutEndAreGivenUpOrCutAndToldApart)
{
    log_set_level(CurrentLog, LogError);
    const auto processed = [&](const Fields &row) {
        std::vector<std::string> settings = {"x=" + row[0], "self=$(self)", "there=$(back)",
                                             "back=$(there)", "more=+$(more)"};
        for (int link = 0; link < 101; link++)
            settings.push_back(std::to_string(link) + "=$(" + std::to_string(link + 1) + ")");
        settings.push_back("101=end");
        const Store store = table(settings, Ini_Replace);
        new_errors();
        ini_process(store.get());
        const std::string told = new_errors();
        const std::string about = "The value of 'x' was ";
        return all(store, "x") + (told.starts_with(about)
                                      ? told.substr(0, told.find('|')).erase(0, about.size())
                                      : "");
    };
    const std::string most(996, '-');
    expect_rows(
        {
            "<$(2)>=><end>,",
            "<$(1)>=><$(101)>,given up after 100 replacements, left as '<$(101)>'",
            "$(self)=>$(self),given up after 100 replacements, left as '$(self)'",
            "$(there)=>$(there),given up after 100 replacements, left as '$(there)'",
            "$(x)=>$(x),given up after 100 replacements, left as '$(x)'",
            "a$(x)=>" + std::string(999, 'a') + ",cut at 999 characters",
            most + "$(101)=>" + most + "end,",
            most + "-$(101)=>" + most + "-en,cut at 999 characters",
        },
        processed);
}

} // namespace
