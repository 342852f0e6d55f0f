#include <algorithm>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "copy.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

using Script = Owned<copy, copy_free>;
using Lines = std::vector<std::string>;

class CopyTest : public InDirectory {
  protected:
    Script load(const std::string &lines)
    {
        write_text("my.cpy", "CopyFile not in section\n[S]\n" + lines);
        Script script(copy_init(store.get()));
        EXPECT_EQ(copy_load(script.get(), "my.cpy", "s"), 1);
        return script;
    }

    // Runs a script, which counts into files and bytes.
    int run(const std::string &lines, int stop_on_fail = 1)
    {
        return copy_process(load(lines).get(), &files, &bytes, stop_on_fail);
    }

    Store store = store_of({{"dir", "/srv"},
                            {"no", "no"},
                            {"yes", "1"},
                            {"full", "FULL"},
                            {"twice", "$(dir)"},
                            {"empty", ""},
                            {"blank", ""}});
    unsigned long files = 7;
    unsigned long bytes = 7;
};

std::string described(const Script &script)
{
    std::string text;
    for (unsigned i = 0; i < copy_count(script.get()); i++)
        text += std::to_string(script->list[i].type) + "," + shown(copy_src(script.get(), i)) +
                "," + shown(copy_not(script.get(), i)) + "," + shown(copy_dst(script.get(), i)) +
                "," + shown(copy_control(script.get(), i)) + "," +
                shown(copy_control_cmp(script.get(), i)) + "\n";
    return text;
}

TEST_F(CopyTest, LinesBecomeCommands)
{
    const std::string half(500, 'x');
    const struct {
        std::string lines, commands;
        Lines errors;
    } rows[] = {
        {"copyfile $(dir)/a b $(dir)$(none)/c\n  CopyDir a - c k v more \n",
         "257,/srv/a,b,/srv$(none)/c,(null),(null)\n258,a,(null),c,k,v\n",
         {}},
        {"Chown a n o\nCHMOD a - 755 k\nRmFile a -\nRmDir\ta n k v\nMkDir a k\nIni a b k\n",
         "2048,a,n,o,(null),(null)\n2049,a,(null),755,k,(null)\n513,a,(null),(null),(null),(null)\n"
         "514,a,n,(null),k,v\n260,a,(null),(null),k,(null)\n264,a,(null),b,k,(null)\n",
         {}},
        {"Rename a b\nExist a b\nWFile a b\nRFile a b k v\nError a  two  words \nError a\n",
         "272,a,(null),b,(null),(null)\n1024,a,(null),b,(null),(null)\n"
         "8192,a,(null),b,(null),(null)\n16384,a,(null),b,k,v\n"
         "4096,a,(null), two  words,(null),(null)\n4096,a,(null),(null),(null),(null)\n",
         {}},
        {"CopyFile\n# no\n\n",
         "",
         {"Missing copy source path", "Missing not wildcard", "Missing copy destination path"}},
        {"Ini a\n", "", {"Missing copy destination path"}},
        {"RmFile a\n", "", {"Missing not wildcard"}},
        {"Error\nMkDir\n", "", {"Missing copy source path", "Missing copy source path"}},
        {"Spoon a b c\nSpoon a b\n",
         "0,a,b,c,(null),(null)\n",
         {"Unknown copy type 'Spoon'", "Unknown copy type 'Spoon'",
          "Missing copy destination path"}},
        // An unknown word takes over the type of a line that was dropped in its place.
        {"MkDir z\nRmFile a\nSpoon a b c\nSpoon a b c\n",
         "260,z,(null),(null),(null),(null)\n513,a,b,c,(null),(null)\n0,a,b,c,(null),(null)\n",
         {"Missing not wildcard", "Unknown copy type 'Spoon'", "Unknown copy type 'Spoon'"}},
        {"MkDir " + half + half + " a\nMkDir b\n",
         "260," + half + std::string(493, 'x') +
             ",(null),(null),(null),(null)\n"
             "260,b,(null),(null),(null),(null)\n",
         {"Unknown copy type 'xxxxxxx'", "Missing not wildcard", "Missing copy destination path"}},
        {"MkDir a\n[s]\nMkDir b\n", "260,a,(null),(null),(null),(null)\n", {}},
    };
    for (const auto &row : rows) {
        const size_t before = log_lines().size();
        EXPECT_EQ(described(load(row.lines)), row.commands);
        Lines errors = log_lines();
        errors.erase(errors.begin(), errors.begin() + static_cast<std::ptrdiff_t>(before));
        std::erase_if(errors, [](const std::string &line) { return !line.starts_with("Error"); });
        ASSERT_EQ(errors.size(), row.errors.size()) << row.lines;
        for (size_t i = 0; i < errors.size(); i++)
            EXPECT_EQ(errors[i], "Error: " + row.errors[i]) << row.lines;
    }
    for (const char *line : {"Process .cpy file line [Ini a b k]", "Copy line 'type' is [264]",
                             "Copy line 'source' is [a]", "Copy line 'control_cmp' is [v]",
                             "Copy list error string is ' two  words'"})
        EXPECT_TRUE(logged("Debug: " + std::string(line))) << line;
}

TEST_F(CopyTest, ASectionIsFoundByItsHeader)
{
    write_text("f", "[a] # no\nMkDir x\n[b ]\nMkDir x\n[B\n# only this\n");
    const auto found = [&](const char *file, const char *section) {
        const Script script(copy_init(nullptr));
        return copy_load(script.get(), file, section) * 10 +
               static_cast<int>(copy_count(script.get()));
    };
    EXPECT_EQ(found("f", "a"), 0);
    EXPECT_EQ(found("f", "b"), 10);
    EXPECT_FALSE(logged_start("Error"));
    EXPECT_EQ(found("absent", "b"), 0);
    EXPECT_TRUE(logged("Error: Error opening 'absent', No such file or directory"));
}

TEST_F(CopyTest, ReferencesAreFilledInOnce)
{
    const Script script(copy_init(store.get()));
    const auto filled = [&](const std::string &text) {
        const Text result(replace_vars(script.get(), text.c_str()));
        return shown(result.get());
    };
    const char *const rows[][2] = {
        {"plain $ (dir)", "(null)"},
        {"$(dir)", "/srv"},
        {"a$(dir)b$(yes)c", "a/srvb1c"},
        {"$(none) $(DIR) $()", "$(none) $(DIR) $()"},
        {"$( dir)$(twice)", "$( dir)$(dir)"},
        {"a$(b", "a$("},
        {"$(dir)$(abc", "/srv$(ab"},
        {"$(", "$"},
        {"$(a$(b))", "$(a$(b))"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(filled(row[0]), row[1]) << row[0];
    ini_add_name(store.get(), "long", std::string(9500, 'v').c_str());
    EXPECT_EQ(filled("$(long)"), std::string(8999, 'v'));
    EXPECT_EQ(filled("$(dir)" + std::string(9500, 'r')), "/srv" + std::string(8999, 'r'));
    EXPECT_EQ(filled("$(long)$(long)"), std::string(9999, 'v'));
    EXPECT_EQ(filled(std::string(20000, 'b') + "$(none)$(x"), std::string(9999, 'b'));
}

TEST_F(CopyTest, AFieldIsSplitIntoDirectoryAndPattern)
{
    const std::string here = fs::current_path().string();
    const struct {
        const char *field;
        std::string path, source_file, destination_file;
    } rows[] = {
        {"/opt/app/*.cgi", "/opt/app/", "*.cgi", "*.cgi"},
        {"/opt/app/", "/opt/app/", "*", "(null)"},
        {"a\\b", "a\\", "b", "b"},
        {"index.html", here, "index.html", "(null)"},
    };
    for (const auto &row : rows) {
        const Script script = load("Rename " + std::string(row.field) + " " + row.field);
        char buffer[path_size];
        EXPECT_EQ(shown(copy_src_path(script.get(), 0, buffer, path_size)), row.path);
        EXPECT_EQ(shown(copy_dst_path(script.get(), 0, buffer, path_size)), row.path);
        EXPECT_EQ(shown(copy_src_file(script.get(), 0, buffer, path_size)), row.source_file);
        EXPECT_EQ(shown(copy_dst_file(script.get(), 0, buffer, path_size)), row.destination_file);
        EXPECT_EQ(copy_src_file(script.get(), 1, buffer, path_size), nullptr);
    }
}

TEST_F(CopyTest, AControlDecidesWhetherACommandRuns)
{
    const struct {
        const char *control;
        int result;
    } rows[] = {{"", 1},      {"none", 1},      {"none x", 1},    {"yes", 1},      {"no", -1},
                {"full", -1}, {"full full", 1}, {"full Full", 1}, {"no yes", -1},  {"no NO", 1},
                {"blank", 1}, {"empty", -1},    {"blank x", 1},   {"dir full", -1}};
    std::free(ini_remove_name(store.get(), "blank"));
    for (const auto &row : rows)
        EXPECT_EQ(copy_do(load(std::string("MkDir d ") + row.control).get(), 0, nullptr),
                  row.result)
            << row.control;
    EXPECT_EQ(run("MkDir d no\nMkDir d/e\n"), 1);
    EXPECT_EQ(files, 1U);
    EXPECT_TRUE(logged("Debug: Doing nothing due to controlling setting"));
    EXPECT_TRUE(logged("Debug: Processing [260:d->,,no,]"));
}

TEST_F(CopyTest, CopyingAndRemovingGiveTheExpectedTree)
{
    const Lines source = {"A.cfg", "b", "odd\\d/", "odd\\d/x", "sub/", "sub/A.cfg", "sub/a.CFG"};
    const struct {
        const char *line;
        int result;
        unsigned long files;
        Lines added, gone; // in d, and from d
    } rows[] = {
        {"CopyFile s/* - d/to", 1, 2, {"to/A.cfg=1", "to/b=1"}, {}},
        {"CopyFile s/* *.CFG d/to", 1, 1, {"to/b=1"}, {}},
        {"CopyFile s/b - d/t*", 1, 2, {"to/b=1", "too/b=1"}, {}},
        {"CopyFile s/b too,x d/*", 1, 1, {"to/b=1"}, {}},
        {"CopyFile s/ - d/to", 1, 2, {"to/A.cfg=1", "to/b=1"}, {}},
        {"CopyFile b - d/to", 1, 1, {"to/b=top"}, {}},
        {"CopyDir s/* - d/to",
         1,
         7,
         {"to/A.cfg=1", "to/b=1", "to/odd\\d/", "to/odd\\d/x=1", "to/sub/", "to/sub/A.cfg=1",
          "to/sub/a.CFG=1"},
         {}},
        {"CopyDir s/* *.CFG,odd* d/to", 1, 3, {"to/b=1", "to/sub/", "to/sub/A.cfg=1"}, {}},
        {"CopyFile s/none - d/to", 0, 0, {}, {}},
        {"CopyFile s/sub - d/to", 0, 0, {}, {}},
        {"CopyFile s/b - d/to/", 0, 0, {}, {}},
        {"CopyFile s/b - d/*/to", 0, 0, {}, {}},
        {"CopyFile s/b - d/old", 0, 0, {}, {}},
        {"RmFile d/* *.KEEP", 1, 1, {}, {"old=o"}},
        {"RmDir d/* *.KEEP,to", 1, 2, {}, {"old=o", "too/"}},
        {"RmDir d/too -", 1, 1, {}, {"too/"}},
        {"RmDir d/t* *.KEEP", 1, 2, {}, {"to/", "too/"}},
        {"RmFile d/to -", 0, 0, {}, {}},
        {"RmFile d/none -", 0, 0, {}, {}},
        // What fails to be made, written or renamed is tried as a copy.
        {"Rename s/b d/to", 1, 1, {"to/b=1"}, {}},
        {"Ini s/b d/to", 1, 1, {"to/b=1"}, {}},
        {"Rename s/none d/no", 0, 0, {}, {}},
        {"MkDir s/b/x", 0, 0, {}, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        fs::remove_all("s");
        fs::remove_all("d");
        for (const std::string &name : source)
            if (name.back() != '/')
                write_text("s/" + name, "1");
        write_text("b", "top");
        write_text("d/old", "o");
        write_text("d/x.keep", "k");
        fs::create_directories("d/to");
        fs::create_directories("d/too");
        Lines expected = tree_of("d");
        expected.insert(expected.end(), row.added.begin(), row.added.end());
        for (const std::string &name : row.gone)
            std::erase(expected, name);
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(run(row.line), row.result);
        EXPECT_EQ(files, row.files);
        EXPECT_EQ(tree_of("d"), expected);
    }
    for (const char *line : {"Error: No destination directories found",
                             "Error: Error opening dir 'd/*/', No such file or directory",
                             "Info: No files found to copy in 's/' matching 'none'",
                             "Error: Error renaming 's/none'->'d/no', No such file or directory"})
        EXPECT_TRUE(logged_start(line)) << line;
}

TEST_F(CopyTest, AFailureStopsTheRunOnlyWhenAskedTo)
{
    write_text("s/a", "12345");
    const char *script = "MkDir d\nCopyFile s/a - ./d\nSpoon a b c\nRmFile none -\nRmDir d -\n";
    EXPECT_EQ(run(script, 1), 0);
    EXPECT_EQ(files, 2U);
    EXPECT_EQ(bytes, 5U);
    EXPECT_EQ(log_lines().back(), "Info: Stop on fail set, stopping...");
    EXPECT_TRUE(logged_start("Error: How did we get here!"));
    EXPECT_EQ(run(script, 0), 1);
    EXPECT_EQ(files, 4U);
    EXPECT_EQ(bytes, 5U);
    EXPECT_TRUE(logged("Info: Stop on fail NOT set, continuing..."));
    EXPECT_EQ(log_lines().back(), "Info: Copy script completed successfully");
    EXPECT_EQ(tree_of("."), (Lines{".log=" + read_all(".log"), "my.cpy=" + read_all("my.cpy"), "s/",
                                   "s/a=12345"}));
}

TEST_F(CopyTest, ModesAndOwnersReachWholeTrees)
{
    write_text("t/d/f", "");
    write_text("t/d/x.cfg", "");
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    EXPECT_EQ(run("Chmod t/* *.CFG 0710\n"), 1);
    EXPECT_EQ(files, 2U);
    EXPECT_EQ(fs::status("t/d").permissions(), fs::perms(0710));
    EXPECT_EQ(fs::status("t/d/f").permissions(), fs::perms(0710));
    EXPECT_EQ(fs::status("t/d/x.cfg").permissions(), fs::perms(0644));
    EXPECT_TRUE(logged("Debug: Not chmod'ding 't/d/x.cfg'"));
    EXPECT_TRUE(logged("Debug: Found files to chmod, not doing '*.CFG'"));
    EXPECT_EQ(run("Chown t/d - $(user):nogroup\nChown none - root\n", 0), 1);
    EXPECT_EQ(files, 0U);
    ini_add_name(store.get(), "user", "nobody");
    EXPECT_EQ(run("Chown t/d */x.* $(user):nogroup\nChown t/d/x.cfg - daemon\n"), 1);
    EXPECT_EQ(files, 3U);
    struct stat info {};
    ASSERT_EQ(::stat("t/d/f", &info), 0);
    EXPECT_EQ(info.st_uid + info.st_gid, 2U * 65534U);
    ASSERT_EQ(::stat("t/d/x.cfg", &info), 0);
    EXPECT_EQ(info.st_uid + info.st_gid, 2U);
    for (const char *line : {"Found files to chown, doing all of them", "No files found to chown",
                             "Found user id for ''=-1", "Found group id for 'nogroup'=65534",
                             "Not chown'ing 't/d/x.cfg'", "Finished chown'ing, 0 files done",
                             "Finished chown'ing, 2 files done"})
        EXPECT_TRUE(logged("Debug: " + std::string(line))) << line;
    EXPECT_TRUE(logged("Error: file_chown failed"));
    // The first entry that fails ends its level: below t/d there are two, and t/d itself is mine.
    ASSERT_EQ(::chown("t/d/f", 0, 0), 0);
    become_nobody();
    EXPECT_EQ(dochmod("t", "*", nullptr, 0755), 1);
    EXPECT_TRUE(logged("Error: file_chmod failed"));
}

TEST_F(CopyTest, TemplatesBecomeSettingsFiles)
{
    const std::string wide(2990, 'w');
    write_text("t", "  Path = $(dir) \n  # note \t\r\n\n \n$(none)\n" + wide + "$(dir) $(dir)\n" +
                        "last $(yes)");
    EXPECT_EQ(run("Ini t out\n"), 1);
    EXPECT_EQ(read_all("out"),
              "Path = /srv\n  # note\n\n\n$(none)\n" + wide + "/srv $(\nir)\n" + "last 1\n");
    EXPECT_TRUE(logged("Info: Writing INI file 't' to 'out'"));
    const std::string text = read_all("t");
    fs::create_symlink("t", "link");
    for (const char *line : {"Ini t t", "Ini t ./link", "Ini t /dev/full", "Ini none out",
                             "Ini t none/out", "Ini . out2"})
        EXPECT_EQ(run(line), 0) << line;
    EXPECT_EQ(read_all("t"), text);
    EXPECT_EQ(read_all("out"), "");
    for (const char *line :
         {"Error: Error creating ini file 't'", "Error: Error reading ini file 'none', No",
          "Error: Error creating ini file 'none/out', No such"})
        EXPECT_TRUE(logged_start(line)) << line;
}

TEST_F(CopyTest, MarkersAndErrorsUseSettings)
{
    write_text("r", "content");
    EXPECT_EQ(run("Exist r e1\nExist none e2\nMkDir made e1\nMkDir unmade e2\nWFile w dir\n"
                  "WFile v a_word\nRFile r got\nRename v new\nError yes no\nError none no\n"),
              1);
    EXPECT_EQ(files, 9U);
    EXPECT_EQ(values_of(store, "e1 e2 got"), "true|false|(none)");
    EXPECT_EQ(read_all("w") + "," + read_all("new") + "," + read_all("r"), "/srv,a_word,");
    EXPECT_TRUE(fs::exists("made") && !fs::exists("unmade") && !fs::exists("v"));
    EXPECT_STREQ(copy_error(), "");
    EXPECT_EQ(run("Error no Not  this one\nMkDir late\n"), 0);
    EXPECT_STREQ(copy_error(), "Not  this one");
    EXPECT_EQ(run("Error no\n"), 0);
    EXPECT_STREQ(copy_error(), "");
    EXPECT_FALSE(fs::exists("late"));
    EXPECT_EQ(run("WFile /dev/full dir\nWFile none/f dir\nRFile none/f got\n", 0), 1);
    EXPECT_EQ(files, 0U);
    for (const char *line : {"Error: Failed to write (/dev/full), No space left on device",
                             "Error: Failed to write (none/f), No such file or directory",
                             "Error: Failed to read (none/f), No such file or directory"})
        EXPECT_TRUE(logged(line)) << line;
}

} // namespace
