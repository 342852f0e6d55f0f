#include "array.h"

#include <sstream>

#include "rows.h"
#include "support.h"

namespace {

// Runs a script over an array of so many letters; what it reads, '-' for nothing. '#' reads by
// number, '?' the next so many; '@' goes to an item, '>' and '<' go so many steps; '+' inserts.
std::string run(const Fields &fields)
{
    char letters[] = "abcdefghijklmnopqrstuvwxyz";
    const Owned<Array, array_free> owner(array_init(0));
    Array *const array = owner.get();
    for (int item = 0; item < fields.number<int>(0); item++)
        EXPECT_EQ(array_add(array, &letters[item]), 1);
    std::string answers;
    const auto tell = [&](void *item) { answers += item ? *static_cast<char *>(item) : '-'; };
    std::istringstream script(fields[1]);
    char command = 0;
    for (int number = 0; script >> command >> number;) {
        if (command == '#')
            tell(array_get_num(array, number));
        else if (command == '@')
            array_goto(array, number);
        else if (command == '+')
            answers += std::to_string(array_add_num(array, &letters[25], number));
        for (int step = 0; step < number && std::string("?<>").find(command) < 3; step++)
            command == '?' ? tell(array_get(array))
                           : (command == '<' ? array_prev : array_next)(array);
    }
    return answers;
}

TEST(Array, AnswersScripts)
{
    expect_rows({"0|?1 #0 @0 ?1=>---", "2|@0 ?4=>ab--", "11|#10 #9=>kj", "2|#-1 #2 ?1=>---",
                 "3|#1 +1 ?1=>b1c", "3|+0 +-1 +5 @0 ?2=>100za", "2|#0 <2 ?1=>aa", "2|@0 >1 ?1=>b",
                 "2|@0 >3 ?1=>-", "3|#2 ?1 @-5 ?1=>c--"},
                run);
}

} // namespace
