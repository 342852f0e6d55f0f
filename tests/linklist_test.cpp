#include "linklist.h"

#include "support.h"

namespace {

class List : public ::testing::Test {
  protected:
    // Adds a heap copy of each letter at the cursor.
    void add(const std::string &letters) const
    {
        for (const char letter : letters)
            EXPECT_EQ(list_add(list.get(), s_strdup(std::string(1, letter).c_str())), 1);
    }

    // What list_del detaches, "-" when there is nothing.
    std::string removed() const
    {
        const Text item(static_cast<char *>(list_del(list.get())));
        return item ? item.get() : "-";
    }

    // The items from the cursor on; the cursor ends behind them.
    std::string rest() const
    {
        std::string items;
        for (; const void *item = list_get(list.get()); list_next(list.get()))
            items += static_cast<const char *>(item);
        return items;
    }

    std::string all() const
    {
        list_start(list.get());
        return rest();
    }

    const Owned<Linklist, list_free_dealloc> list{list_init()};
};

TEST_F(List, AddingKeepsTheOrderAndTheCurrentItem)
{
    add("abc");
    EXPECT_EQ(list_get(list.get()), nullptr);
    EXPECT_EQ(list_get_next(list.get()), nullptr);
    list_start(list.get());
    EXPECT_STREQ(static_cast<char *>(list_get_next(list.get())), "b");
    add("xy");
    EXPECT_EQ(rest(), "bc");
    EXPECT_EQ(all(), "axybc");
    EXPECT_EQ(list_items(list.get()), 5);
    list_prev(list.get());
    EXPECT_EQ(rest(), "c");
    list_start(list.get());
    list_prev(list.get());
    EXPECT_EQ(rest(), "axybc");
}

TEST_F(List, DeletingTakesTheCurrentItemAndAtTheEndTheLast)
{
    EXPECT_EQ(removed(), "-");
    add("abcde");
    EXPECT_EQ(removed(), "e");
    EXPECT_EQ(removed(), "d");
    list_start(list.get());
    list_next(list.get());
    EXPECT_EQ(removed(), "b");
    EXPECT_EQ(rest(), "c");
    EXPECT_EQ(all(), "ac");
    for (const char *const item : {"c", "a", "-"})
        EXPECT_EQ(removed(), item);
    EXPECT_EQ(list_items(list.get()), 0);
    add("z");
    EXPECT_EQ(all(), "z");
}

// An insert leaves the prev of the node behind it as it was, so going back passes over the new one.
TEST_F(List, OneSidedLinksNeverLeadToAReleasedNode)
{
    add("abc");
    list_start(list.get());
    list_next(list.get());
    add("x");
    list_next(list.get());
    list_prev(list.get());
    EXPECT_EQ(rest(), "xbc") << "one step back from c passes over b";
    for (int round = 0; round < 200; round++) {
        list_start(list.get());
        for (int step = 0; step < round % 5; step++)
            list_next(list.get());
        add("yz");
        if (round % 3 == 0)
            list_prev(list.get());
        removed();
        list_prev(list.get());
        removed();
        EXPECT_EQ(all().size(), list_items(list.get()));
    }
    EXPECT_EQ(all().size(), 4U);
    while (list_items(list.get()) > 0) {
        EXPECT_NE(removed(), "-");
        list_prev(list.get());
    }
    EXPECT_EQ(all(), "");
}

TEST_F(List, NullsAreAnswered)
{
    Linklist *none = nullptr;
    for (const auto move : {list_start, list_prev, list_next})
        move(none);
    list_free_dealloc(&none);
    list_free_dealloc(nullptr);
    EXPECT_FALSE(list_add(none, &none) || list_add(list.get(), nullptr) || list_get(none) ||
                 list_get_next(none) || list_items(none) || list_items(list.get()));
    EXPECT_EQ(list_del(none), nullptr);
}

} // namespace
