#include <cstring>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "init.h"
#include "support.h"

namespace {

using Script = Owned<init, init_free>;

Script load(const std::string &text)
{
    write_text("my.int", text);
    Script script(init_init());
    EXPECT_EQ(init_load(script.get(), "my.int"), 1);
    return script;
}

// Loads and runs a script; what it prints.
std::string run(const std::string &text, const Store &store)
{
    testing::internal::CaptureStdout();
    init_run(load(text).get(), store.get());
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

std::string described(pInit script)
{
    std::string text;
    for (pIItem item = init_get_num(script, 0); item; item = init_get(script))
        text += std::to_string(item->mode) + " " + shown(item->a) + " " + shown(item->b) + " " +
                shown(item->control) + " " + shown(item->compare) + "\n";
    return text;
}

using InitTest = InDirectory;

TEST_F(InitTest, LinesBecomeItems)
{
    const struct {
        std::string text, items;
    } rows[] = {
        {"Exist a b c d\nCopy a b - -\nHTTP_User a b - -\nHTTP_Group a b - -\nHTTP_Root a b - -\n"
         "HTTP_Scripts a b - -\nTimeDate a b - -\nWFile a b - -\nRFile a b - -\n",
         "1 a b c d\n2 a b (null) (null)\n20 a b (null) (null)\n24 a b (null) (null)\n"
         "272 a b (null) (null)\n528 a b (null) (null)\n1024 a b (null) (null)\n"
         "2048 a b (null) (null)\n4096 a b (null) (null)\n"},
        {"#Exist a b - -\n\n \t \n\tExist\ta  b - - # note\r\n", "1 a b (null) (null)\n"},
        // What a short line sets stays for the line that completes the item.
        {"Copy x y z\nExist p found - -\nExist p f - -\n", "1 p found z (null)\n1 p f (null) "
                                                           "(null)\n"},
        {"Copy\nSpoon a b - -\nRFile a b -\n", "2 a b (null) (null)\n"},
        {"copy a b - -\n", "0 a b (null) (null)\n"},
        // A line over 999 characters goes on as the next one.
        {"Exist " + std::string(990, 'p') + " b c\nCopy a b - -\n", "2 a b (null) (null)\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(described(load(row.text).get()), row.items) << row.text;
    for (const char *word : {"Spoon", "copy", "c"})
        EXPECT_TRUE(logged("Error: Unknown init command '" + std::string(word) + "'")) << word;
    EXPECT_STREQ(init_error(), "");
    EXPECT_EQ(init_load(Script(init_init()).get(), "no.int"), 0);
    EXPECT_STREQ(init_error(), "Failed to read 'no.int', No such file or directory");
    init_seterror("%s", std::string(2000, 'e').c_str());
    EXPECT_EQ(init_error(), std::string(999, 'e'));
}

TEST_F(InitTest, CommandsStoreTheirOutcome)
{
    write_text("bin/tool", "");
    write_text("long.txt", " one\n\n" + std::string(2500, 'x') + "\r\nlast");
    write_text("empty.txt", "");
    const Store store =
        store_of({{"dir", "bin"}, {"act", "upgrade"}, {"percent", "100%%"}, {"date", "%Y%m%d"}});
    EXPECT_EQ(run("Exist $(dir)/tool e1 - -\nExist $(dir)/none e2 - -\nExist bin e3 - -\n"
                  "Copy c1 act - -\nCopy c2 literal - -\nCopy c3 c1 - -\n"
                  "RFile long.txt r1 - -\nRFile empty.txt r2 - -\nRFile $(dir).txt r3 - -\n"
                  "TimeDate none t1 - -\nTimeDate percent t2 - -\nTimeDate date t3 - -\n"
                  "Spoon s1 act - -\n"
                  // The control's value, else its text, must be exactly the comparison.
                  "Copy g1 ran act upgrade\nCopy g2 ran act UPGRADE\nCopy g3 ran word word\n"
                  "Copy g4 ran - word\nCopy g5 ran word -\n",
                  store),
              "");
    EXPECT_EQ(values_of(store, "e1 e2 e3 c1 c2 c3"), "true|false|true|upgrade|literal|upgrade");
    EXPECT_EQ(values_of(store, "r1"), read_all("long.txt"));
    EXPECT_EQ(values_of(store, "r2 r3 t1 t2 s1"), "(none)|(none)|(none)|100%|(none)");
    EXPECT_EQ(values_of(store, "g1 g2 g3 g4 g5"), "ran|(none)|ran|(none)|ran");
    const std::string today = values_of(store, "t3");
    EXPECT_EQ(today.size(), 8U);
    EXPECT_EQ(today.find_first_not_of("0123456789"), std::string::npos) << today;
    EXPECT_TRUE(logged("Error: Failed to read (bin.txt), No such file or directory"));
    EXPECT_TRUE(logged("Error: TimeDate 'none' is NULL"));
}

TEST_F(InitTest, FilesAreWrittenWhereThatIsAllowed)
{
    write_text("closed/x", "kept");
    ASSERT_EQ(::chmod("closed", 0555), 0);
    write_text("my.int", "");
    ASSERT_EQ(::chmod("my.int", 0666), 0);
    become_nobody();
    run("WFile $(dir)/out value - -\nWFile literal a_word - -\nWFile /dev/full value - -\n"
        "WFile closed/new value - -\nWFile literal shorter - never\n",
        store_of({{"dir", directory.c_str()}, {"value", "the value"}}));
    EXPECT_EQ(read_all("out") + "," + read_all("literal"), "the value,a_word");
    EXPECT_TRUE(logged("Error: Failed to write (/dev/full), No space left on device"));
    EXPECT_TRUE(logged("Error: Failed to write (closed/new), Permission denied"));
    EXPECT_EQ(tree_of("closed"), std::vector<std::string>{"x=kept"});
}

// --- The web server's configuration ----------------------------------------------------------

struct Web {
    const char *name;
    const char *conf; // null: there is no file
    const char *script;
    const char *printed;
    const char *settings; // u, g, r, s and the flag f
};

void PrintTo(const Web &row, std::ostream *out)
{
    *out << row.name;
}

constexpr const char *every_item = "HTTP_User u f - -\nHTTP_Group g f - -\n"
                                   "HTTP_Root r f - -\nHTTP_Scripts s f - -\n";

class InitWebTest : public InitTest, public testing::WithParamInterface<Web> {};

TEST_P(InitWebTest, FactsAreFoundOnceAndKept)
{
    // The place is a fixed absolute one, so it gets a mount that only this process sees.
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", "/opt", "tmpfs", 0, nullptr) != 0)
        GTEST_SKIP() << "no mount namespace of its own: " << std::strerror(errno);
    if (GetParam().conf)
        write_text("/opt/apache/conf/httpd.conf", GetParam().conf);
    const Store store = store_of({});
    EXPECT_EQ(run(GetParam().script, store), GetParam().printed);
    EXPECT_EQ(values_of(store, "u g r s f"), GetParam().settings);
    if (*GetParam().printed)
        return;
    ASSERT_EQ(::remove("/opt/apache/conf/httpd.conf"), 0);
    const Store again = store_of({});
    EXPECT_EQ(run(GetParam().script, again), "");
    EXPECT_EQ(values_of(again, "u g r s f"), GetParam().settings);
}

const Web web_rows[] = {
    {"Complete",
     "# User root\nUser nobody\nGroup nogroup\n\tDocumentRoot  \"/var/www/html\"\n"
     "ScriptAlias /cgi-bin/ \"/var/www/cgi-bin/\"\nUser stopped_reading\n",
     every_item, "", "nobody|nogroup|/var/www/html|/var/www/cgi-bin/|(none)"},
    {"CaseAndLaterMatches",
     "USER root\nuser nobody extra\nUser\nGroup\ngroup nogroup\ndocumentroot /first\n"
     "<VirtualHost *>\nDocumentRoot \"/a b\"\nDocumentRoot\n</VirtualHost>\n"
     "ScriptAlias /scripts/ /x\nScriptAlias /CGI-BIN/ /y\nScriptAlias /cgi-bin/\n"
     "scriptalias /my/cgi-bin /z\n",
     every_item, "", "nobody|nogroup|/|/z|(none)"},
    {"NoScripts", "User nobody\nGroup nogroup\nDocumentRoot \"/v\"\n", every_item,
     "ERROR: Could not find, ScriptAlias\n", "nobody|nogroup|/v|(none)|true"},
    {"NothingInIt", "Listen 80\n", "HTTP_Group g f - -\n",
     "ERROR: Could not find, Group, User, DocumentRoot, ScriptAlias\n",
     "(none)|(none)|(none)|(none)|true"},
    {"UnknownUser", "DocumentRoot /v\nUser #48\nDocumentRoot /w\n",
     "HTTP_User u f - -\nHTTP_Root r - - -\n", "ERROR: User '#48' has bad uid '-1'\n",
     "(none)|(none)|/v|(none)|true"},
    {"UnknownGroup", "User nobody\nGroup nosuch\n", "HTTP_Root r f - -\nHTTP_User u - - -\n",
     "ERROR: Group 'nosuch' has bad uid '-1'\n", "nobody|(none)|(none)|(none)|true"},
    {"LoneQuote", "DocumentRoot \"\nUser nobody\n", "HTTP_User u f - -\nHTTP_Root r f - -\n", "",
     "nobody|(none)||(none)|(none)"},
    {"NoFile", nullptr, "HTTP_User u f - -\n", "ERROR: Cannot find httpd.conf file\n",
     "(none)|(none)|(none)|(none)|true"},
};

INSTANTIATE_TEST_SUITE_P(Conf, InitWebTest, testing::ValuesIn(web_rows));

} // namespace
