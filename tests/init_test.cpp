#include <cstring>
#include <filesystem>
#include <regex>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "init.h"
#include "support.h"

namespace {

using Script = Owned<init, init_free>;
using InitTest = InDirectory;

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
    return testing::internal::GetCapturedStdout();
}

TEST_F(InitTest, LinesBecomeItems)
{
    // What a short line sets stays for the line that completes the item. A line over 999
    // characters goes on as the next one.
    const Script script = load(
        "Exist a b c d\nCopy a b - -\nHTTP_User a b - -\nHTTP_Group a b - -\nHTTP_Root a b - -\n"
        "HTTP_Scripts a b - -\nTimeDate a b - -\nWFile a b - -\nRFile a b - -\n#Exist a b - -\n"
        "\n \t \n\tExist\ta  b - - # note\r\nCopy x y z\nExist p q - -\nExist p f - -\n"
        "Copy\nSpoon a b - -\ncopy a b - -\nExist " +
        std::string(990, 'p') + " b c\nCopy a b - -\nRFile a b -\n");
    std::string items;
    for (const auto move : {init_start, init_next, init_prev})
        move(script.get());
    EXPECT_STREQ(init_get(script.get())->compare, "d");
    for (pIItem item = init_get_num(script.get(), 0); item; item = init_get(script.get()))
        items += std::to_string(item->mode) + item->a + item->b +
                 (item->control ? item->control : "") + (item->compare ? item->compare : "") + "|";
    EXPECT_EQ(items, "1abcd|2ab|20ab|24ab|272ab|528ab|1024ab|2048ab|4096ab|1ab|1pqz|1pf|2ab|0ab|"
                     "2ab|");
    EXPECT_EQ(new_errors(), "Unknown init command 'Spoon'|Unknown init command 'copy'|"
                            "Unknown init command 'c'");
    EXPECT_EQ(init_load(script.get(), "no.int"), 0);
    EXPECT_STREQ(init_error(), "Failed to read 'no.int', No such file or directory");
}

TEST_F(InitTest, CommandsStoreTheirOutcome)
{
    std::filesystem::create_directory("bin");
    write_text("long.txt", " one\n\n" + std::string(5000, 'x') + "\r\nlast");
    write_text("empty.txt", "");
    const Store store = store_of({{"dir", "bin"}, {"act", "up"}, {"date", "%Y%m%d"}});
    run("RFile long.txt r1 - -\nRFile empty.txt r2 - -\nRFile $(dir).txt r3 - -\n"
        "TimeDate none t1 - -\nTimeDate date t2 - -\n",
        store);
    EXPECT_EQ(values_of(store, "r1"), read_all("long.txt"));
    EXPECT_EQ(values_of(store, "r2 r3 t1"), "(null)|(null)|(null)");
    EXPECT_TRUE(std::regex_match(values_of(store, "t2"), std::regex("[0-9]{8}")));
    EXPECT_EQ(new_errors(), "Failed to read (bin.txt), No such file or directory|"
                            "TimeDate 'none' is NULL");
    ASSERT_EQ(::chmod("my.int", 0666) | ::chmod("bin", 0555), 0);
    become_nobody();
    run("WFile $(dir)/new act - -\nWFile /dev/full act - -\nWFile /dev/full r1 - -\n", store);
    EXPECT_EQ(new_errors(), "Failed to write (bin/new), Permission denied|"
                            "Failed to write (/dev/full), No space left on device|"
                            "Failed to write (/dev/full), No space left on device");
    run("WFile " + directory + "/out act - -\nWFile word a_word - -\nWFile word x - never\n",
        store);
    EXPECT_EQ(read_all("out") + "," + read_all("word"), "up,a_word");
}

TEST_F(InitTest, WebServerFactsAreFoundOnceAndKept)
{
    constexpr const char *place = "/opt/apache/conf/httpd.conf";
    // A fixed absolute place gets a mount that only this process sees.
    if (!have_own_mounts() || ::mount("none", "/opt", "tmpfs", 0, nullptr) != 0)
        GTEST_SKIP() << "no mount namespace of its own: " << std::strerror(errno);
    const std::string user = "HTTP_User u f - -\n";
    const std::string all = user + "HTTP_Group g f - -\nHTTP_Root r f - -\nHTTP_Scripts s f - -\n";
    const std::string none = "(null)|(null)|";
    const struct {
        std::string conf, script, outcome; // what is printed, then the settings
    } rows[] = {
        {"", user, "ERROR: Cannot find httpd.conf file\n" + none + none + "true"},
        {"# User root\nUser nobody\nGroup nogroup\n\tDocumentRoot  \"/var/html\"\n"
         "ScriptAlias /cgi-bin/ \"/var/cgi/\"\nUser not_read_any_more\n",
         all, "nobody|nogroup|/var/html|/var/cgi/|(null)"},
        {"USER root\nuser nobody x\nUser\nGroup\ngroup nogroup\ndocumentroot /first\n<V *>\n"
         "DocumentRoot \"/a b\"\nDocumentRoot\n</V>\nScriptAlias /scripts/ /x\n"
         "ScriptAlias /CGI-BIN/ /y\nScriptAlias /cgi-bin/\nscriptalias /my/cgi-bin /z\n",
         all, "nobody|nogroup|/|/z|(null)"},
        {"User nobody\nGroup nogroup\nDocumentRoot \"\n", all,
         "ERROR: Could not find, ScriptAlias\nnobody|nogroup||(null)|true"},
        {"DocumentRoot /v\nUser #48\nDocumentRoot /w\n", user + "HTTP_Root r - - -\n",
         "ERROR: User '#48' has bad uid '-1'\n" + none + "/v|(null)|true"},
        {"User nobody\nGroup nosuch\n", "HTTP_Root r f - -\n" + user,
         "ERROR: Group 'nosuch' has bad uid '-1'\nnobody|(null)|" + none + "true"}};
    // What is found holds for the whole process, so each row has one of its own.
    const auto check = [&](const auto &row) {
        if (!row.conf.empty())
            write_text(place, row.conf);
        const int rounds = row.outcome.starts_with("ERROR") ? 1 : 2;
        for (int round = 0; round < rounds; round++) {
            const Store store = store_of({});
            const std::string printed = run(row.script, store);
            EXPECT_EQ(printed + values_of(store, "u g r s f"), row.outcome);
            ::unlink(place);
        }
        ::_exit(HasFailure());
    };
    for (const auto &row : rows)
        EXPECT_EXIT(check(row), testing::ExitedWithCode(0), "") << row.conf;
}

} // namespace
