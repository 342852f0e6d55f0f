// The program's own table beside its pages.
#include "kit.h"

#include "support.h"

namespace {

TEST(Kit, TheManualNamesEverySubcommand)
{
    const std::string overview = read_all(INSTALLER_ROOT "/man/product-kit.1");
    for (unsigned number = 0; const Subcommand *command = kit_subcommand(number); number++) {
        const std::string word = command->word;
        EXPECT_NE(overview.find("\n.It Cm " + word + "\n"), std::string::npos) << word;
    }
}

} // namespace
