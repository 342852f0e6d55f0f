#include "tcp.h"

#include <unistd.h>

#include "support.h"

namespace {

using Tcp = InDirectory;

TEST_F(Tcp, TellsWhoThisMachineIs)
{
    char expected[line_size] = "";
    char text[line_size];
    ASSERT_EQ(::gethostname(expected, line_size), 0);
    EXPECT_STREQ(tcp_hostname(text, line_size), expected);
    EXPECT_STREQ(tcp_hostname(text, 2), "1") << "no room for a name, and little for the fallback";
    EXPECT_EQ(new_errors(), "Gethostname failed, File name too long");
    EXPECT_STREQ(tcp_getipbyname("127.0.0.1", text, line_size), "127.0.0.1");
    EXPECT_EQ(tcp_getipbyname("", text, line_size), nullptr);
    EXPECT_TRUE(tcp_isip("1.2.3.40") && !tcp_isip("1.2.3.x"));
}

} // namespace
