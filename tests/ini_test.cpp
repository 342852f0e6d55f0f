#include "ini.h"

#include <algorithm>

#include <unistd.h>

#include "support.h"

namespace {

class Settings : public InDirectory {
  protected:
    static Store of(std::vector<SettingList> rows, const int *associations = nullptr)
    {
        rows.push_back({});
        Store store(ini_init());
        ini_setup(store.get(), rows.data(), associations, 1);
        return store;
    }

    // All values of a setting in the order read, each ended by a comma.
    static std::string all(const Store &store, const char *name)
    {
        std::string values;
        const char *value = ini_value_name(store.get(), name);
        for (; value; value = ini_value_name_next(store.get(), name))
            values += std::string(value) + ",";
        return values;
    }

    long errors() const
    {
        const auto lines = log_lines();
        return std::count_if(lines.begin(), lines.end(),
                             [](const std::string &line) { return line.starts_with("Error"); });
    }
};

constexpr IniMode without(IniMode flag)
{
    return static_cast<IniMode>(Ini_DefaultMode & ~static_cast<unsigned>(flag));
}

TEST_F(Settings, ModesDecideWhatIsAdded)
{
    const std::string too_long(1200, '\\');
    const struct {
        const char *name;
        IniMode mode;
        std::string value;
        int result;
        std::string values, logged;
    } rows[] = {
        {"plain", Ini_DefaultMode, "b", 1, "b,", "value for 'plain' set to 'b'"},
        {"plain", Ini_DefaultMode, "", -1, "p,", "value for 'plain' not added, value was empty"},
        {"plain", without(Ini_UseEmpty), "", 1, ",", "value for 'plain' set to ''"},
        {"plain", without(Ini_UseMulti), "b", 1, "p,b,", "value for 'plain' set to 'b'"},
        {"multi", Ini_DefaultMode, "b", 1, "m,b,", "value for 'multi' set to 'b'"},
        {"secret", Ini_DefaultMode, "b", 1, "b,", "value for 'secret' set to 'xxxx'"},
        {"secret", without(Ini_UsePass), "b", 1, "b,", "value for 'secret' set to 'b'"},
        {"path", Ini_DefaultMode, "a\\b/c", 1, "a/b/c,", "value for 'path' set to 'a/b/c'"},
        {"path", Ini_DefaultMode, too_long, 1, std::string(999, '/') + ",", ""},
        {"path", without(Ini_UsePath), too_long, 1, too_long + ",", ""},
        {"empty", Ini_DefaultMode, "", 1, ",", "value for 'empty' set to ''"},
        {"fixed", Ini_DefaultMode, "", -1, "", "value for 'fixed' not addded, value is fixed"},
        {"fixed", without(Ini_UseFixed), "b", 1, "b,", "value for 'fixed' set to 'b'"},
        {"fixed", Ini_UseLock, "b", 1, "", "value for 'fixed' set to 'b'"},
        {"new", Ini_DefaultMode, "", 1, ",", "setting 'new' created and set to ''"},
        {"new", Ini_DefaultMode | Ini_NewModes, "b", 1, "b,",
         "setting 'new' created and set to 'xxxx'"},
        {"new", without(Ini_NewEmpty), "", -1, "", ""},
        {"new", without(Ini_UseNew), "b", 0, "", ""},
    };
    for (const auto &row : rows) {
        const Store store = of({{"plain", "p", Ini_None},
                                {"multi", "m", Ini_Multi},
                                {"secret", "s", Ini_Pass},
                                {"path", nullptr, Ini_Path},
                                {"empty", "e", Ini_Empty},
                                {"fixed", nullptr, Ini_Fixed}});
        ini_setmode(store.get(), row.mode);
        const size_t before = log_lines().size();
        EXPECT_EQ(ini_add_name(store.get(), row.name, row.value.c_str()), row.result) << row.name;
        EXPECT_EQ(all(store, row.name), row.values) << row.name << row.mode;
        const auto lines = log_lines();
        EXPECT_TRUE(lines.back().ends_with(row.logged)) << row.logged;
        EXPECT_LE(lines.size(), before + 1);
    }
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
    // A setting's own value may be added to it, and replaces itself.
    const Store single = of({{"single", "the one value of it", Ini_None}});
    for (const Store &owner : {std::cref(store), std::cref(single)})
        EXPECT_EQ(ini_add(owner.get(), 0, ini_value(owner.get(), 0)), 1);
    EXPECT_EQ(all(store, "answer") + all(single, "single"), "a,a,b,the one value of it,");
}

TEST_F(Settings, NamesAreFoundExactlyAndTheTableGrows)
{
    const Store store =
        of({{"a", "first", Ini_None}, {"a", "second", Ini_Replace}, {"b", nullptr, Ini_None}});
    for (int added = 3; added < 20; added++) {
        ini_add_name(store.get(), ("new" + std::to_string(added)).c_str(), "value");
        ASSERT_GT(store->size, store->items);
        EXPECT_EQ(store->list[store->items].setting, nullptr);
    }
    EXPECT_EQ(ini_items(store.get()), 20);
    EXPECT_EQ(all(store, "a") + all(store, "A") + all(store, "b") + all(store, "new19"),
              "first,value,");
    EXPECT_EQ(ini_setting_mode(store.get(), 1), Ini_Replace);
    EXPECT_EQ(ini_index(store.get(), "new11"), 11);
    EXPECT_STREQ(ini_label(store.get(), 11), "new11");
    Owned<Array, array_free> names(ini_label_array(store.get()));
    EXPECT_EQ(names->items, 20);
    names.reset(ini_label_wild(store.get(), "n*1?"));
    EXPECT_EQ(names->items, 10);
    EXPECT_STREQ(array_item<char>(names.get(), 9), "new19");
    Linklist *list = ini_label_list(store.get());
    EXPECT_EQ(list_items(list), 20);
    while (list_items(list) > 0)
        static_cast<void>(list_del(list));
    list_free_dealloc(&list);
}

TEST_F(Settings, TheLastAssociationDecides)
{
    const int pairs[] = {0, 3, 0, 5, 9, 1, -2, 1, 1, 1, 1, 1, 2, 1, 2, 4, -1};
    const Store store = of({{"0", nullptr, Ini_None},
                            {"1", nullptr, Ini_None},
                            {"2", nullptr, Ini_None},
                            {"3", "three", Ini_None},
                            {"4", "four", Ini_None},
                            {"5", nullptr, Ini_None}},
                           pairs);
    EXPECT_EQ(all(store, "0") + all(store, "1") + all(store, "2"), "four,");
    EXPECT_TRUE(logged("Error: Ini association index 9 invalid."));
    EXPECT_TRUE(logged("Error: Ini association index -2 invalid."));
    EXPECT_TRUE(logged("Debug: Ini association index 2->4 added"));
    ini_add(store.get(), 5, "five");
    EXPECT_EQ(all(store, "0") + all(store, "2"), "five,four,");
    ini_add(store.get(), 2, "own");
    EXPECT_EQ(all(store, "2"), "own,");
}

TEST_F(Settings, AssociationsInACycleEnd)
{
    const int pairs[] = {0, 0, 0, 0, 1, 0, 1, 0, -1};
    const Store store = of(std::vector<SettingList>(64, {"same", nullptr, Ini_None}), pairs);
    ::alarm(5);
    EXPECT_EQ(ini_value(store.get(), 1), nullptr);
    ::alarm(0);
}

const char *doubled(const char *value)
{
    static std::string text;
    return (text = std::string(value) + value).c_str();
}

const char *marked(const char *value)
{
    static std::string text;
    return (text = "<" + std::string(value) + ">").c_str();
}

TEST_F(Settings, HooksChangeValuesInTheOrderRegistered)
{
    constexpr auto first = static_cast<SettingMode>(64), second = static_cast<SettingMode>(128);
    const Store store = of({{"none", "dflt", Ini_None},
                            {"both", "dflt", first | second | Ini_Fixed},
                            {"other", "dflt", second | Ini_Multi}});
    ini_setmode(store.get(), without(Ini_UseFixed));
    ini_setup_load_fn(store.get(), marked, second);
    ini_setup_load_fn(store.get(), marked, first);
    ini_setup_load_fn(store.get(), doubled, first);
    EXPECT_TRUE(log_lines().back().ends_with("] already set for flag [64], replacing with new fn"));
    for (int index = 0; index < 3; index++)
        ini_add(store.get(), index, "x");
    EXPECT_EQ(all(store, "none") + all(store, "both") + all(store, "other"), "x,<x><x>,dflt,<x>,");
    ini_add(store.get(), 1, std::string(999, 'y').c_str());
    EXPECT_EQ(all(store, "both").size(), 1000U);
}

TEST_F(Settings, ManyAndFormattedValuesAreAddedByTheSameRules)
{
    const Store store = of({{"plain", "p", Ini_None}, {"multi", nullptr, Ini_Multi}});
    Owned<Array, array_free> values(array_init(0));
    char texts[3][4] = {"1", "", "3"};
    for (char *const text : texts)
        array_add(values.get(), text);
    EXPECT_EQ(ini_add_array(store.get(), 0, values.get()) +
                  ini_add_array(store.get(), 1, values.get()),
              2);
    EXPECT_EQ(ini_add_format(store.get(), 1, "%s=%d", "n", 4), 1);
    EXPECT_EQ(all(store, "plain") + all(store, "multi"), "3,1,3,n=4,");
    EXPECT_EQ(ini_add_format(store.get(), 0, "%s!", std::string(999, 'x').c_str()), 1);
    EXPECT_EQ(all(store, "plain"), std::string(999, 'x') + ",");
    EXPECT_EQ(ini_add_format(store.get(), 0, "%s", ""), -1);
    ini_add(store.get(), 0, "Off");
    EXPECT_EQ(ini_true(store.get(), 0) * 10 + ini_false(store.get(), 0), 1);
}

TEST_F(Settings, ReplacingFillsATextInOnePass)
{
    const Store store = of({{"base", "/opt", Ini_None},
                            {"again", "$(base)", Ini_Replace},
                            {"none", nullptr, Ini_None}});
    const struct {
        const char *text;
        int size;
        const char *result;
    } rows[] = {
        {"as it is", 99, "as it is"},
        {"", 9, ""},
        {"<$(base)$(base)>", 99, "</opt/opt>"},
        {"<$(BASE)$(none)$(who)$()>", 99, "<>"},
        {"$(again)", 99, "$(base)"},
        {"$($(base))", 99, ")"},
        {"a$(base", 99, "a$(base"},
        {"$(base)$(", 99, "/opt$("},
        {"abc$(base)d", 4, "abc"},
        {"abc$(base)d", 5, "abc/"},
        {"abc$(base)d", 8, "abc/opt"},
        {"abc$(base)d", 9, "abc/optd"},
        {"abcd$(base)", 4, "abc"},
        {"$(base)x", 4, "/op"},
        {"$(base)$(base)x", 5, "/opt"},
        {"$(base)", 1, ""},
        {"abc", 3, "ab"},
    };
    for (const auto &row : rows) {
        std::vector<char> result(static_cast<size_t>(row.size), '~');
        ini_replace(store.get(), row.text, result.data(), row.size);
        EXPECT_STREQ(result.data(), row.result) << row.text << row.size;
    }
}

TEST_F(Settings, ProcessingResolvesReferencesBetweenValues)
{
    const std::string big(600, 'x');
    const Store store = of({
        {"bin", "$(base)/bin", Ini_Replace},
        {"base", "/opt/app", Ini_Replace},
        {"capitals", "$(BASE)", Ini_None},
        {"action", "install", Ini_None},
        {"lost", "<$(action)$(empty)>", Ini_Replace},
        {"empty", nullptr, Ini_Replace},
        {"unknown", "$(who) $(base)", Ini_Replace},
        {"twice", "$(base):$(base)", Ini_Replace},
        {"nested", "$(a$(b))", Ini_Replace},
        {"a1", "inner", Ini_Replace},
        {"b", "1", Ini_Replace},
        {"open", "$(base) $(base", Ini_Replace},
        {"big", big.c_str(), Ini_Replace},
        {"cut", "$(big)$(big)", Ini_Replace},
        {"base", "shadowed", Ini_Replace},
        {"many", "$(b)", Ini_Multi},
    });
    ini_add_name(store.get(), "many", "$(b)$(b)");
    EXPECT_EQ(ini_process(store.get()), 1);
    for (const auto &[name, value] :
         std::initializer_list<std::pair<const char *, std::string>>{{"bin", "/opt/app/bin"},
                                                                     {"capitals", "/opt/app"},
                                                                     {"lost", "<>"},
                                                                     {"empty", ""},
                                                                     {"unknown", "$(who) /opt/app"},
                                                                     {"twice", "/opt/app:/opt/app"},
                                                                     {"nested", "inner"},
                                                                     {"open", "/opt/app $(base"},
                                                                     {"cut", std::string(999, 'x')},
                                                                     {"many", "1,11"}})
        EXPECT_EQ(all(store, name), value.empty() ? "" : value + ",") << name;
    EXPECT_TRUE(logged(
        "Debug: Replaced '$(base)' in '$(base):$(base)' with '/opt/app' = '/opt/app:/opt/app'"));
    EXPECT_TRUE(logged(
        "Debug: Replaced '$(action)' in '<$(action)$(empty)>' with '(NULL)' = '<$(empty)>'"));
    EXPECT_EQ(errors(), 0);
}

TEST_F(Settings, ReferencesInACycleEndAfterAHundredReplacements)
{
    const auto chain = [](int length) {
        Store store(ini_init());
        for (int link = 0; link < length; link++)
            ini_add_name(store.get(), std::to_string(link).c_str(),
                         ("$(" + std::to_string(link + 1) + ")").c_str());
        ini_add_name(store.get(), std::to_string(length).c_str(), "end");
        for (int link = 0; link <= length; link++)
            store->list[link].mode = Ini_Replace;
        ini_process(store.get());
        return all(store, "0") + all(store, "1");
    };
    EXPECT_EQ(chain(100), "end,end,");
    EXPECT_EQ(errors(), 0);
    EXPECT_EQ(chain(101), "$(101),end,");
    EXPECT_EQ(errors(), 1);
    const Store store = of({{"self", "$(self)", Ini_Replace},
                            {"one", "$(two)", Ini_Replace},
                            {"two", "$(one)", Ini_Replace}});
    EXPECT_EQ(ini_process(store.get()), 1);
    EXPECT_EQ(all(store, "self"), "$(self),");
    EXPECT_EQ(errors(), 4);
}

TEST_F(Settings, NullsAreAnswered)
{
    Ini *none = nullptr;
    const Store store = of({{"a", "value", Ini_None}});
    char text[8] = "same";
    ini_setmode(none, Ini_Blank);
    ini_addmode(none, Ini_Blank);
    ini_rmvmode(none, Ini_Blank);
    ini_setup(none, nullptr, nullptr, 1);
    ini_setup(store.get(), nullptr, nullptr, 1);
    ini_setup_load_fn(none, doubled, Ini_None);
    ini_replace(none, "text", text, 8);
    ini_replace(store.get(), nullptr, text, 8);
    EXPECT_STREQ(text, "same");
    ini_free(&none);
    ini_free(nullptr);
    EXPECT_EQ(ini_index(none, "a") + ini_index(store.get(), nullptr), -2);
    EXPECT_FALSE(ini_items(none) || ini_process(none) || ini_process(Store(ini_init()).get()));
    EXPECT_FALSE(ini_add_name(none, "a", "b") || ini_add_name(store.get(), nullptr, "b") ||
                 ini_add_name(store.get(), "a", nullptr) || ini_add_array(store.get(), 0, nullptr));
    for (const auto &[ini, index] : {std::pair(none, 0), {store.get(), -1}, {store.get(), 1}}) {
        EXPECT_FALSE(ini_label(ini, index) || ini_value(ini, index) || ini_value_next(ini, index));
        EXPECT_FALSE(ini_true(ini, index) || ini_false(ini, index) || ini_setting_mode(ini, index));
        EXPECT_FALSE(ini_add(ini, index, "b") || ini_add_format(ini, index, "b"));
        EXPECT_TRUE(ini_remove(ini, index) == nullptr && ini_remove_next(ini, index) == nullptr);
    }
    EXPECT_EQ(all(store, "a"), "value,");
}

} // namespace
