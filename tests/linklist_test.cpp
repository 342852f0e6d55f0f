#include "linklist.h"

#include <algorithm>
#include <random>

#include "rows.h"
#include "support.h"

namespace {

// Runs a script over a new list; what it answers. A letter is added, '-' deletes, '?' reads, '!'
// reads the next, '^', '>' and '<' move, '*' tells the number of items and all from the first on.
std::string run(const Fields &script)
{
    const Owned<Linklist, list_free_dealloc> owner(list_init());
    Linklist *list = owner.get();
    std::string answers;
    const auto tell = [&](const void *item) {
        answers += item ? *static_cast<const char *>(item) : '.';
    };
    for (const char word : script[0]) {
        if (word == '-')
            tell(Text(static_cast<char *>(list_del(list))).get());
        else if (word == '?' || word == '!')
            tell(word == '?' ? list_get(list) : list_get_next(list));
        else if (word == '^' || word == '*')
            list_start(list);
        else if (word == '>' || word == '<')
            (word == '>' ? list_next : list_prev)(list);
        else
            EXPECT_EQ(list_add(list, s_strdup(std::string(1, word).c_str())), 1);
        if (word == '*')
            for (answers += std::to_string(list_items(list)); list_get(list); list_next(list))
                tell(list_get(list));
    }
    return answers;
}

TEST(List, AnswersScripts)
{
    expect_rows({"*?!-=>0...", "abc?!*=>..3abc", "abc^!x?*=>bb4axbc", "abc^?>>>>?<?=>a.c",
                 "abc^<?=>a", "abc--*=>cb1a", "abc^>-?*-=>bc2acc", "a-z*=>a1z",
                 "abc^--?-*-=>abcc0.",
                 // Going back passes over what was put in front of an item.
                 "abc^>x>>?<?<?=>.cx", "abc^>x>?<?=>cx", "abc^xyz>-*=>b5xyzac",
                 // After deletions nothing leads back to a released node.
                 "ab^x-<?-<*=>axx1b", "abc^xy<-<?-*=>yxx3abc", "abc^>x<<->-<<->-<*=>abxc0"},
                run);
}

TEST(List, EveryItemComesOutOnce)
{
    std::mt19937 random(7);
    for (int round = 0; round < 300; round++) {
        std::string script = "abc";
        for (int step = 0; step < 60; step++)
            script += "xy-^><<>-<"[random() % 10];
        std::string out = run(Fields(script + "*"));
        std::erase_if(script, [](char c) { return c < 'a'; });
        std::erase_if(out, [](char c) { return c < 'a'; });
        EXPECT_TRUE(std::is_permutation(out.begin(), out.end(), script.begin(), script.end()))
            << out;
    }
}

TEST(List, NullsAreAnswered)
{
    Linklist *none = nullptr;
    for (const auto move : {list_start, list_prev, list_next})
        move(none);
    list_free_dealloc(&none);
    EXPECT_FALSE(list_add(none, &none) || list_get(none) || list_get_next(none) ||
                 list_items(none));
    EXPECT_EQ(list_del(none), nullptr);
    const Owned<Linklist, list_free_dealloc> list(list_init());
    EXPECT_EQ(list_add(list.get(), nullptr) + list_items(list.get()), 0);
}

} // namespace
