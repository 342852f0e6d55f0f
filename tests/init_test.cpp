#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "init.h"
#include "rows.h"
#include "support.h"

namespace {

using Probes = Owned<init, init_free>;
using InitTest = InDirectory;

Probes load(const std::string &text)
{
    write_text("my.int", text);
    Probes probes(init_init());
    EXPECT_EQ(init_load(probes.get(), "my.int"), 1);
    return probes;
}

// Loads and runs a script; what it prints.
std::string run(const std::string &text, const Store &store)
{
    testing::internal::CaptureStdout();
    init_run(load(text).get(), store.get());
    return testing::internal::GetCapturedStdout();
}

// Lines with the items that they become, as "kind a b control compare", and what is said of them.
TEST_F(InitTest, LinesBecomeItems)
{
    const auto items_of = [&](const Fields &row) {
        const Probes probes = load(row[0]);
        std::string items;
        for (pIItem item = init_get_num(probes.get(), 0); item; item = init_get(probes.get())) {
            items += (items.empty() ? "" : "; ") + std::to_string(item->mode);
            for (const char *field : {item->a, item->b, item->control, item->compare})
                items += field ? " " + std::string(field) : " -";
        }
        const std::string errors = new_errors();
        return items + (errors.empty() ? "" : "! ") + errors;
    };
    const std::string p(990, 'p');
    expect_rows(
        {
            "Exist a b c d=>1 a b c d",
            "Copy a b - -=>2 a b - -",
            "HTTP_User a b - -=>20 a b - -",
            "HTTP_Group a b - -=>24 a b - -",
            "HTTP_Root a b - -=>272 a b - -",
            "HTTP_Scripts a b - -=>528 a b - -",
            "TimeDate a b - -=>1024 a b - -",
            "WFile a b - -=>2048 a b - -",
            "RFile a b - -=>4096 a b - -",
            "#Exist a b - -=>",
            "\n \t \n=>",
            "\tExist\ta  b - - # note\r=>1 a b - -",
            "Spoon a b - -=>0 a b - -! Unknown init command 'Spoon'",
            "copy a b - -=>0 a b - -! Unknown init command 'copy'",
            // What a short line sets stays for the line that completes the item.
            "Copy x y z\nExist p q - -\nExist p f - -=>1 p q z -; 1 p f - -",
            "Copy\nSpoon a b - -=>2 a b - -! Unknown init command 'Spoon'",
            "RFile a b -=>",
            // A line over 999 characters goes on as the next one.
            "Exist " + p + " b c\nCopy a b - -=>2 a b - -! Unknown init command 'c'",
        },
        items_of);
    const Probes probes = load("Copy a b - -\nCopy c d - -\n");
    for (const auto move : {init_start, init_next, init_prev})
        move(probes.get());
    EXPECT_STREQ(init_get(probes.get())->a, "a");
    EXPECT_EQ(init_load(probes.get(), "no.int"), 0);
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
    const std::string date = values_of(store, "t2");
    EXPECT_EQ(date.find_first_not_of("0123456789"), std::string::npos) << date;
    EXPECT_EQ(date.size(), 8U) << date;
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
    const std::string good = "User nobody\nGroup nogroup\nDocumentRoot /pages\n"
                             "ScriptAlias /cgi-bin/ /programs\n";
    const struct {
        std::string conf, asked, outcome; // what is printed, and each fact asked for
    } rows[] = {
        {"", "User", "ERROR: Cannot find httpd.conf file\n-, failed"},
        // Each fact for itself, as many as there are.
        {good, "User", "nobody"},
        {good, "Group", "nogroup"},
        {good, "Root", "/pages"},
        {good, "Scripts", "/programs"},
        {good, "User Group Root Scripts", "nobody nogroup /pages /programs"},
        {"User nobody\n", "User", "nobody"},
        {"Group nogroup\n", "Group", "nogroup"},
        {"DocumentRoot /pages\n", "Root", "/pages"},
        {"ScriptAlias /cgi-bin/ /programs\n", "Scripts", "/programs"},
        // A request that fails lists all that is missing, asked for or not.
        {"# nothing\n", "User",
         "ERROR: Could not find, Group, User, DocumentRoot, ScriptAlias\n-, failed"},
        {"User nobody\n", "User Root",
         "ERROR: Could not find, Group, DocumentRoot, ScriptAlias\nnobody -, failed"},
        {"Group nogroup\nDocumentRoot /pages\n", "Scripts",
         "ERROR: Could not find, User, ScriptAlias\n-, failed"},
        // A quote at the beginning takes the last character with it, whatever that is.
        {"\tDocumentRoot  \"/my/pages\"\n", "Root", "/my/pages"},
        {"DocumentRoot \"/my pages\"\n", "Root", "/m"},
        {"DocumentRoot /my\"pages\"\n", "Root", "/my\"pages\""},
        {"ScriptAlias /cgi-bin/ \"/cgi/\"\n", "Scripts", "/cgi/"},
        {"ScriptAlias /cgi-bin/ \"\n", "Scripts", ""},
        // The last of several counts, unless all is known; case does, too, in the alias alone.
        {good + "User root\n", "User", "nobody"},
        {"DocumentRoot /first\n<V *>\ndocumentroot /second\nDocumentRoot\n", "Root", "/second"},
        {"ScriptAlias /my/cgi-bin /a\nScriptAlias /CGI-BIN/ /b\nScriptAlias /cgi-bin/\n", "Scripts",
         "/a"},
        {"user nobody x\nUser\n# User root\n", "User", "nobody"},
        // Who is not known ends the search.
        {"DocumentRoot /pages\nUser #48\nDocumentRoot /other\n", "User Root",
         "ERROR: User '#48' has bad uid '-1'\n- /pages, failed"},
        {"Group nosuch\n", "Group", "ERROR: Group 'nosuch' has bad uid '-1'\n-, failed"}};
    // What is found holds for the whole process, so each row has one of its own.
    const auto check = [&](const auto &row) {
        if (!row.conf.empty())
            write_text(place, row.conf);
        std::istringstream asked(row.asked);
        std::string script, outcome;
        const std::vector<std::string> facts(std::istream_iterator<std::string>(asked), {});
        for (const std::string &fact : facts)
            script += "HTTP_" + fact + " " + fact + " failed - -\n";
        const bool fails = row.outcome.starts_with("ERROR");
        // What was found is known without the file.
        for (int round = 0; round < (fails ? 1 : 2); round++) {
            const Store store = store_of({});
            outcome = run(script, store);
            for (const std::string &fact : facts) {
                const char *value = ini_value_name(store.get(), fact.c_str());
                outcome += (fact == facts[0] ? "" : " ") + std::string(value ? value : "-");
            }
            outcome += ini_value_name(store.get(), "failed") ? ", failed" : "";
            EXPECT_EQ(outcome, row.outcome) << row.conf << row.asked;
            ::unlink(place);
        }
        ::_exit(HasFailure());
    };
    for (const auto &row : rows)
        EXPECT_EXIT(check(row), testing::ExitedWithCode(0), "") << row.conf;
}

} // namespace
