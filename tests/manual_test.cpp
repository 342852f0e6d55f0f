// The manual's tables beside the program's own: a word that only one of them has misleads.
#include <set>

#include <regex.h>

#include "copy.h"
#include "init.h"
#include "quest.h"
#include "shared.h"
#include "support.h"

namespace {

using Words = std::multiset<std::string>;

// What a pattern's first group finds in a file of the repository.
Words found_in(const char *path, const char *pattern)
{
    const std::string text = read_all(std::string(INSTALLER_ROOT "/").append(path));
    regex_t wanted;
    EXPECT_EQ(::regcomp(&wanted, pattern, REG_EXTENDED), 0);
    Words words;
    regmatch_t groups[2];
    const char *at = text.c_str();
    for (; ::regexec(&wanted, at, 2, groups, 0) == 0; at += groups[0].rm_eo)
        words.emplace(at + groups[1].rm_so, at + groups[1].rm_eo);
    ::regfree(&wanted);
    return words;
}

Words all_words(const char *(*word)(unsigned number))
{
    Words words;
    for (unsigned number = 0; word(number); number++)
        words.insert(word(number));
    return words;
}

TEST(Manual, TablesHaveTheWordsOfTheFormats)
{
    const char *const rows = "\n\\.It Ic (\\S+) Ta ";
    EXPECT_EQ(found_in("man/product-install-init.5", rows), all_words(init_word));
    EXPECT_EQ(found_in("man/product-install-question.5", rows), all_words(quest_word));
    EXPECT_EQ(found_in("man/product-install-copy.5", rows), all_words(copy_word));
    const Store store(ini_init());
    ASSERT_EQ(load_datfile(store.get(), "/dev/null"), 1);
    Words settings;
    for (int index = 0; index < ini_items(store.get()); index++)
        settings.insert(ini_label(store.get(), index));
    clear_datfile();
    EXPECT_EQ(found_in("man/product-install-data.5", "\n\\.It Va (\\S+) Ta "), settings);
}

// The front end is no module, so its table is read where it is written.
TEST(Manual, ListHasTheOptions)
{
    const Words options = found_in("installer/installer.cpp", "\\{\"-(\\w+)\", take_");
    EXPECT_EQ(found_in("man/product-install.1", "\n\\.It Fl (\\w+)"), options);
    EXPECT_FALSE(options.empty());
}

} // namespace
