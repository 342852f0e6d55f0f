#include "array.h"

#include "support.h"

namespace {

TEST(Array, TheCursorGoesOverItemsInTheirOrder)
{
    char letters[] = "abcdefghijkl";
    const Owned<Array, array_free> owner(array_init(0));
    Array *const array = owner.get();
    const auto read = [&](int number) {
        std::string items;
        for (int item = 0; item < number; item++) {
            const void *const next = array_get(array);
            items += next ? *static_cast<const char *>(next) : '-';
        }
        return items;
    };
    EXPECT_EQ(read(1), "-");
    array_setup(array, 2, 3);
    for (int item = 0; item < 11; item++)
        EXPECT_EQ(array_add(array, &letters[item]), 1);
    array_start(array);
    EXPECT_EQ(read(13), "abcdefghijk--");
    EXPECT_EQ(array_get_num(array, 10), &letters[10]);
    EXPECT_FALSE(array_get_num(array, 11) || array_get_num(array, -1));
    array_goto(array, 2);
    array_prev(array);
    EXPECT_EQ(read(1), "b");
    EXPECT_EQ(array_add_num(array, &letters[11], 1), 1);
    EXPECT_EQ(array_get_num(array, 1), &letters[11]);
}

} // namespace
