#include "installer.h"

#include <cerrno>

#include "rows.h"
#include "support.h"

namespace {

using FrontEnd = InDirectory;

template <typename Act> std::string printed_by(Act act)
{
    testing::internal::CaptureStdout();
    act();
    return testing::internal::GetCapturedStdout();
}

TEST_F(FrontEnd, ScreensAreThereForWhoeverLinksThem)
{
    const Store store = store_of({{"product", "Book"}});
    write_text("blurb.txt", " $(product)\n");
    EXPECT_EQ(printed_by([&] { print_blurb(store.get()); }), "\nBook\n");
    EXPECT_EQ(printed_by([] { print_blurb(nullptr); }), "");
    EXPECT_EQ(printed_by([&] { print_menu(nullptr); }),
              "\n1. Install NONAME\n2. Upgrade NONAME\n3. Remove NONAME\n4. Exit\n");
    EXPECT_EQ(printed_by([] { printdot(nullptr, nullptr, 0); }), ".");
    errno = ENOSPC;
    EXPECT_EQ(printed_by([] { printerror(nullptr, nullptr, 0); }),
              "\nError: No space left on device\n");
}

// What another program reads off the flows.
TEST_F(FrontEnd, FlowsTellWhatSetsThemApart)
{
    const auto told = [](const Fields &row) {
        const flow &kind = flows[row.number<size_t>(0)];
        return shown(kind.section) + (kind.stops_on_fail ? " stops" : " goes on") +
               (kind.counts_bytes ? ", bytes" : ", files") + (kind.expands_errors ? ", $" : "");
    };
    expect_rows({"0=>install stops, bytes", "1=>upgrade stops, bytes, $",
                 "2=>remove goes on, files", "3=>(null) goes on, files"},
                told);
}

} // namespace
