#include "array.h"

#include <functional>
#include <map>
#include <sstream>

#include "rows.h"
#include "support.h"

namespace {

char letters[] = "abcdefghijklmnopqrstuvwxyz";

// Runs a script over an array of `filled` letters; what it answers. "s" and "n" tell the slots with
// the step, and the cursor.
std::string run(const Fields &fields)
{
    const Owned<Array, array_free> owner(array_init(0));
    Array *array = owner.get();
    for (int item = 0; item < fields.number<int>(0); item++)
        EXPECT_EQ(array_add(array, &letters[item]), 1);
    std::ostringstream answers;
    const auto tell = [&](void *item) { answers << (item ? *static_cast<char *>(item) : '-'); };
    const std::map<char, std::function<void(int)>> commands = {
        {'+', [&](int index) { answers << array_add_num(array, &letters[25], index); }},
        {'#', [&](int index) { tell(array_get_num(array, index)); }},
        {'?', [&](int) { tell(array_get(array)); }},
        {'^', [&](int) { array_start(array); }},
        {'@', [&](int index) { array_goto(array, index); }},
        {'>', [&](int) { array_next(array); }},
        {'<', [&](int) { array_prev(array); }},
        {'s', [&](int) { answers << array->size << '/' << array->block << '.'; }},
        {'n', [&](int) { answers << array->current << "."; }},
        {'0', [&](int size) { array_setup(array, size, 0); }},
        {'3', [&](int size) { array_setup(array, size, 3); }}};
    std::istringstream script(fields[1]);
    for (std::string word; script >> word;)
        commands.at(word[0])(word.size() > 1 ? std::stoi(word.substr(1)) : 0);
    return answers.str();
}

TEST(Array, AnswersScripts)
{
    expect_rows({"0|s=>0/10.", "1|s=>10/10.", "10|s=>10/10.", "11|s=>20/10.", "0|00 s=>0/5.",
                 "11|325 s 05 s #10=>25/3.25/5.k"},
                run);
    expect_rows({"10|+11 s=>020/10.", "2|^ ? ? ? n=>ab--1.", "2|#-1 #2 n=>---1.", "0|07 s=>7/5.",
                 "3|#1 +1 ?=>b1c", "3|#0 +1 +3 ?=>a11b"},
                run);
    expect_rows({"3|+0 n +-1 +5 ^ ? ?=>1-1.00za", "0|^ n +0 n ?=>0.11.-", "2|#0 < n < n=>a0.0.",
                 "2|^ > n > n > n=>1.-1.-1.", "2|< n ?=>-2.-"},
                run);
    expect_rows({"3|#1 +2 +0 +5 ? ? ? n=>b111cz--1.", "3|? n #2 n ?=>--1.c-1.-",
                 "2|@1 n @2 n @-5 n ? @0 ?=>1.1.-5.-a"},
                run);
}

TEST(Array, ReleasesWhatItIsToldTo)
{
    static std::string released;
    const auto release = [](void **slot) {
        released += static_cast<char *>(*slot);
        std::free(std::exchange(*slot, nullptr));
    };
    Array *array = nullptr;
    for (const auto &free : std::initializer_list<std::function<void()>>{
             [&] { array_free_fn(&array, release); }, [&] { array_free_dealloc(&array); }}) {
        array = array_init(0);
        for (const char *const text : {"a", "b"})
            array_add(array, s_strdup(text));
        EXPECT_EQ(array_add(array, nullptr) + array_add_num(array, nullptr, 0), 0);
        free();
        EXPECT_EQ(array, nullptr);
        free();
    }
    EXPECT_EQ(released, "ab");
    for (const auto move : {array_start, array_next, array_prev})
        move(array);
    array_goto(array, 0);
    EXPECT_FALSE(array_add(array, letters) || array_get(array) || array_get_num(array, 0));
}

} // namespace
