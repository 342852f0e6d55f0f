#include "array.h"

#include <climits>

#include "support.h"

namespace {

using Items = Owned<Array, array_free>;

char item_texts[12][4] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"};

Items filled(int items)
{
    Items array(array_init(0));
    for (int item = 0; item < items; item++)
        EXPECT_EQ(array_add(array.get(), item_texts[item]), 1);
    return array;
}

// What array_get gives from the cursor on.
std::string rest_of(const Items &array)
{
    std::string rest;
    while (const void *item = array_get(array.get()))
        rest += std::string(static_cast<const char *>(item)) + " ";
    return rest;
}

TEST(Array, GrowsByItsBlock)
{
    EXPECT_EQ(filled(0)->size, 0);
    EXPECT_EQ(filled(10)->size, 10);
    const Items array = filled(11);
    EXPECT_EQ(array->size, 20);
    EXPECT_EQ(array->data[19], nullptr);
    array_setup(array.get(), 25, 3);
    EXPECT_EQ(array->size * 10 + array->block, 253);
    array_setup(array.get(), 5, 0);
    EXPECT_EQ(array->size * 10 + array->block, 255);
    array_start(array.get());
    EXPECT_EQ(rest_of(array), "0 1 2 3 4 5 6 7 8 9 10 ");
    const Items fresh = filled(0);
    array_setup(fresh.get(), 0, 0);
    EXPECT_EQ(fresh->size * 10 + fresh->block, 5);
    EXPECT_EQ(fresh->data, nullptr);
    array_setup(fresh.get(), 7, -1);
    EXPECT_EQ(fresh->size * 10 + fresh->block, 75);
}

TEST(Array, TheCursorKeepsToItsItem)
{
    const Items array = filled(3);
    EXPECT_EQ(rest_of(array), "");
    EXPECT_EQ(array_get_num(array.get(), 1), item_texts[1]);
    EXPECT_EQ(array_add_num(array.get(), item_texts[9], 2), 1);
    EXPECT_EQ(array_add_num(array.get(), item_texts[8], 0), 1);
    EXPECT_EQ(array_add_num(array.get(), item_texts[7], 5), 1);
    for (const int index : {-1, 7, INT_MAX, INT_MIN}) {
        EXPECT_EQ(array_add_num(array.get(), item_texts[0], index), 0);
        EXPECT_EQ(array_get_num(array.get(), index), nullptr);
    }
    EXPECT_EQ(rest_of(array), "2 7 ");
    EXPECT_EQ(array->current, -1);
    array_add(array.get(), item_texts[4]);
    EXPECT_EQ(rest_of(array), "");
    array_start(array.get());
    EXPECT_EQ(rest_of(array), "8 0 1 9 2 7 4 ");
    const Items empty = filled(0);
    array_start(empty.get());
    array_add(empty.get(), item_texts[0]);
    EXPECT_EQ(empty->current, 1);
    EXPECT_EQ(rest_of(empty), "");
}

TEST(Array, TheCursorMovesUnevenly)
{
    const Items array = filled(2);
    const auto after = [&array](void (*move)(Array *), int from) {
        array->current = from;
        move(array.get());
        return array->current;
    };
    EXPECT_EQ(after(array_next, 0), 1);
    EXPECT_EQ(after(array_next, 1), -1);
    EXPECT_EQ(after(array_next, -1), -1);
    EXPECT_EQ(after(array_prev, 1), 0);
    EXPECT_EQ(after(array_prev, 0), 0);
    EXPECT_EQ(after(array_prev, -1), -2);
    EXPECT_EQ(array_get(array.get()), nullptr);
    for (const auto &[index, current] : {std::pair(1, 1), {2, 1}, {0, 0}, {-5, -5}}) {
        array_goto(array.get(), index);
        EXPECT_EQ(array->current, current);
    }
}

TEST(Array, ReleasesWhatItIsToldTo)
{
    Array *array = array_init(0);
    for (const char *const text : {"a", "b"})
        array_add(array, s_strdup(text));
    static std::string released;
    array_free_fn(&array, [](void **slot) {
        released += static_cast<char *>(*slot);
        std::free(std::exchange(*slot, nullptr));
    });
    EXPECT_EQ(released, "ab");
    EXPECT_EQ(array, nullptr);
    array = array_init(0);
    array_add(array, s_strdup("freed with the array"));
    array_free_dealloc(&array);
    EXPECT_EQ(array, nullptr);
    array_free_fn(&(array = array_init(0)), nullptr);
    EXPECT_EQ(array, nullptr);
}

TEST(Array, NullsAreAnswered)
{
    Array *none = nullptr;
    for (const auto move : {array_start, array_next, array_prev})
        move(none);
    array_goto(none, 0);
    array_setup(none, 1, 1);
    for (const auto release : {array_free, array_free_dealloc}) {
        release(&none);
        release(nullptr);
    }
    array_free_fn(&none, nullptr);
    EXPECT_FALSE(array_add(none, item_texts[0]) || array_add_num(none, item_texts[0], 0) ||
                 array_get(none) || array_get_num(none, 0));
    const Items array = filled(1);
    EXPECT_FALSE(array_add(array.get(), nullptr) || array_add_num(array.get(), nullptr, 0));
    EXPECT_EQ(array->items, 1);
}

} // namespace
