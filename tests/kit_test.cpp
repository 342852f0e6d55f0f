// The program's own table beside its pages.
#include "kit.h"

#include <filesystem>

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

} // namespace
