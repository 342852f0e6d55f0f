#include "tcp.h"

#include <unistd.h>

#include "support.h"

namespace {

using Tcp = InDirectory;

TEST_F(Tcp, TellsWhoThisMachineIs)
{
    char expected[line_size] = "";
    char name[line_size];
    ASSERT_EQ(::gethostname(expected, line_size), 0);
    EXPECT_STREQ(tcp_hostname(name, line_size), expected);
    EXPECT_EQ(log_lines().size(), 0U);
    // A name that does not fit is no name.
    EXPECT_STREQ(tcp_hostname(name, 2), "1");
    EXPECT_TRUE(logged("Error: Gethostname failed, File name too long"));
    EXPECT_EQ(tcp_init() + tcp_is_init, 2);
    EXPECT_TRUE(logged("Debug: Sockets initialised"));
}

TEST_F(Tcp, LooksUpAddresses)
{
    char address[line_size];
    EXPECT_STREQ(tcp_getipbyname("127.0.0.1", address, line_size), "127.0.0.1");
    EXPECT_STREQ(tcp_getipbyname("127.0.0.1", address, 7), "127.0.");
    EXPECT_EQ(tcp_getipbyname("", address, line_size), nullptr);
    EXPECT_TRUE(log_lines().at(0).starts_with("Error: Socket gethostbyname failed, "));
    EXPECT_TRUE(tcp_isip("1.2.3.40") && tcp_isip("") && tcp_isip("..9"));
    EXPECT_FALSE(tcp_isip("1.2.3.x") || tcp_isip(" 1") || tcp_isip("-1") || tcp_isip(nullptr));
}

} // namespace
