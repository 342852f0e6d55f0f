#include "linklist.h"

#include "rows.h"
#include "support.h"

namespace {

// Runs a script over a new list; what it answers. A letter is added, '-' deletes, '?' reads, '^',
// '>' and '<' move, '*' tells the number of items and all from the first on.
std::string follow(const Fields &script)
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
        else if (word == '?')
            tell(list_get(list));
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
    expect_rows({"*?-=>0..", "abc?^?x?*=>.aa4xabc", "abc^?>>>>?<?=>a.c", "abc^<?=>a",
                 "abc--*=>cb1a", "abc^>-?*-=>bc2acc", "abc^--?-*-=>abcc0.",
                 // Going back passes over what was put in front of an item.
                 "abc^>x>>?<?<?=>.cx",
                 // After deletions nothing leads back to a released node.
                 "ab^x-<?-<*=>axx1b", "abc^>x<<->-<<->-<*=>abxc0",
                 // At the end the last item goes, wherever the end leads back to.
                 "abc^>x>>--*=>cb2ax"},
                follow);
}

} // namespace
