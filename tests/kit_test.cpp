// What all of the program share: its table beside its pages, and its JSON.
#include "kit.h"

#include <filesystem>

#include "json.h"
#include "rows.h"
#include "support.h"

namespace {

TEST(Kit, EverySubcommandHasItsLineAndItsPage)
{
    const std::string manual = INSTALLER_ROOT "/man/product-kit";
    const std::string overview = read_all(manual + ".1");
    for (unsigned number = 0; const Subcommand *command = kit_subcommand(number); number++) {
        const std::string word = command->word;
        EXPECT_NE(overview.find("\n.It Cm " + word + "\n"), std::string::npos) << word;
        EXPECT_TRUE(word == "help" || std::filesystem::exists(manual + "-" + word + ".1")) << word;
    }
}

TEST(Json, WhatIsNoUtf8IsReplacedByteByByte)
{
    const std::string instead = "\uFFFD";
    expect_rows(
        {
            "\u00E9 \u20AC \U0001F600=>\u00E9 \u20AC \U0001F600",
            "caf\xE9 au lait=>caf" + instead + " au lait",
            "too long \xC0\xAF=>too long " + instead + instead,
            "half a pair \xED\xA0\x80=>half a pair " + instead + instead + instead,
            "cut \xE2\x82=>cut " + instead + instead,
        },
        [](const Fields &row) { return utf8_of(row[0]); });
}

} // namespace
