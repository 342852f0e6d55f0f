#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "copy.h"
#include "rows.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

using Script = Owned<copy, copy_free>;

class CopyTest : public InDirectory {
  protected:
    Script load(const std::string &lines)
    {
        write_text("my.cpy", "MkDir out\n[s] x\nMkDir out\n[S]\n" + lines + "\n[s]\nMkDir out\n");
        Script script(copy_init(store.get()));
        EXPECT_EQ(copy_load(script.get(), "my.cpy", "s"), 1);
        return script;
    }

    // Runs a script: its result, the files and the bytes counted, and the errors.
    std::string run(const std::string &lines, int stop_on_fail = 1)
    {
        unsigned long files = 7;
        unsigned long bytes = 7;
        const int result = copy_process(load(lines).get(), &files, &bytes, stop_on_fail);
        return std::to_string(result) + " " + std::to_string(files) + " " + std::to_string(bytes) +
               " " + new_errors();
    }

    Store store = store_of({{"dir", "/srv"}, {"no", "no"}, {"yes", "1"}, {"full", "FULL"}});
};

TEST_F(CopyTest, LinesBecomeCommands)
{
    // An unknown word takes over the type of a line that was dropped in its place. A line over 999
    // characters goes on as the next one.
    const Script script = load(
        "copyfile $(dir)/a b $(dir)$(x)/c\n  CopyDir a - c k v more\nChown a n o\nCHMOD a - 7 k\n"
        "RmFile a -\nRmDir\ta n k v\nMkDir a k\nIni a b k\n# no\n\nRename a b\nExist a b\n"
        "WFile a b\nRFile a b k v\nError a  two  words \nError a\nCopyFile\nError\nIni a\n"
        "RmFile a\nSpoon a b c\nSpoon a b c\nMkDir " +
        std::string(990, 'm') + " a 00\n");
    std::string commands;
    for (unsigned i = 0; i < copy_count(script.get()); i++) {
        commands += std::to_string(script->list[i].type);
        for (const auto field : {copy_src, copy_not, copy_dst, copy_control, copy_control_cmp})
            commands += "," + (field(script.get(), i) ? shown(field(script.get(), i)) : "");
        commands += "|";
    }
    EXPECT_EQ(commands, "257,/srv/a,b,/srv$(x)/c,,|258,a,,c,k,v|2048,a,n,o,,|2049,a,,7,k,|"
                        "513,a,,,,|514,a,n,,k,v|260,a,,,k,|264,a,,b,k,|272,a,,b,,|1024,a,,b,,|"
                        "8192,a,,b,,|16384,a,,b,k,v|4096,a,, two  words,,|4096,a,,,,|"
                        "513,a,b,c,,|0,a,b,c,,|260," +
                            std::string(990, 'm') + ",,,a,|");
    EXPECT_EQ(new_errors(),
              "Missing copy source path|Missing not wildcard|Missing copy destination "
              "path|Missing copy source path|Missing copy destination path|Missing not wildcard|"
              "Unknown copy type 'Spoon'|Unknown copy type 'Spoon'|Unknown copy type '00'|"
              "Missing copy source path|Missing not wildcard|Missing copy destination path");
    EXPECT_EQ(copy_load(script.get(), "absent", "s"), 0);
    EXPECT_EQ(new_errors(), "Error opening 'absent', No such file or directory");
    // A second section takes the place of the first.
    write_text("my.cpy", "[t]\nMkDir a\n[u]\nRmDir b -\n");
    EXPECT_EQ(copy_load(script.get(), "my.cpy", "t") + copy_load(script.get(), "my.cpy", "u"), 2);
    EXPECT_EQ(copy_count(script.get()), 1U);
    EXPECT_STREQ(copy_src(script.get(), 0), "b");
}

TEST_F(CopyTest, ReferencesAreFilledInOnceAndFieldsAreSplit)
{
    ini_add_name(store.get(), "twice", "$(dir)");
    ini_add_name(store.get(), "long", std::string(9500, 'v').c_str());
    const std::string most(8999, 'v');
    const std::string cut = most.substr(0, 255);
    // What a text is filled in to; its directory, pattern, and name as a destination.
    expect_rows({"/o/(dir)/=>(null),/o/(dir)/,*,(null)",
                 "/o\\a$(dir)b$(yes)c=>/o\\a/srvb1c,/o\\a/,srvb1c,srvb1c",
                 "$(x)$(DIR)$()=>$(x)$(DIR)$()," + directory + ",$(x)$(DIR)$(),(null)",
                 "/$(twice)=>/$(dir),/,$(dir),$(dir)", "$(dir)$(abc=>/srv$(ab,/,srv$(ab,srv$(ab",
                 "/$(long)=>/" + most + ",/," + cut + "," + cut},
                [this](const Fields &row) {
                    const Script script = load("WFile " + row[0] + " " + row[0]);
                    char text[path_size];
                    std::string found = shown(Text(replace_vars(script.get(), row.text(0))).get());
                    for (const auto part : {copy_src_path, copy_src_file, copy_dst_file})
                        found += "," + shown(part(script.get(), 0, text, path_size));
                    return found;
                });
    const std::string full = "$(long)$(dir)" + std::string(9500, 'r') + "$(x)$(y";
    EXPECT_EQ(shown(Text(replace_vars(load("").get(), full.c_str())).get()).size(), 9999U);
}

TEST_F(CopyTest, ModesAndOwnersReachWholeTrees)
{
    write_text("t/d/f", "");
    write_text("t/d/x.cfg", "");
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    EXPECT_EQ(run("Chmod t/* *.CFG 0710\nChown t/d - $(dir):nogroup\nChown none - root\n", 0),
              "1 2 0 file_chown failed|file_chown failed");
    EXPECT_EQ(run("Chown t/d */x.* nobody:nogroup\nChown t/d/x.cfg - daemon\n"), "1 3 0 ");
    std::string changed;
    for (const char *name : {"t/d", "t/d/f", "t/d/x.cfg"}) {
        struct stat info {};
        EXPECT_EQ(::stat(name, &info), 0);
        changed += (info.st_mode & 07777) == 0710 ? " 0710:" : " ";
        changed += std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid);
    }
    EXPECT_EQ(changed, " 0710:65534:65534 0710:65534:65534 1:1");
    // The first entry that fails ends its level; the directory itself is the user's own.
    ASSERT_EQ(::chown("t/d/f", 0, 0), 0);
    become_nobody();
    EXPECT_EQ(dochmod("t", "*", nullptr, 0755), 1);
    EXPECT_NE(new_errors().find("Operation not permitted|file_chmod failed"), std::string::npos);
}

TEST_F(CopyTest, TemplatesBecomeSettingsFiles)
{
    const std::string wide(2990, 'w');
    write_text("t",
               "  Path = $(dir) \n  # note \t\r\n\n \n$(x)\n" + wide + "$(dir) $(dir)\n$(yes)");
    EXPECT_EQ(run("Ini t out\n"), "1 1 0 ");
    EXPECT_EQ(read_all("out"), "Path = /srv\n  # note\n\n\n$(x)\n" + wide + "/srv $(\nir)\n1\n");
    fs::create_symlink("t", "link");
    for (const std::string line : {"t ./link", "t x/o", "t /dev/full", "t t"})
        EXPECT_TRUE(run("Ini " + line).starts_with("0 0 0 Error ")) << line;
    EXPECT_EQ(run("Ini x out").find("0 0 0 Error reading ini file 'x', No such file"), 0U);
    EXPECT_GT(read_all("t").size(), wide.size());
    EXPECT_EQ(read_all("out"), "");
}

TEST_F(CopyTest, ErrorsHaveTheirReason)
{
    EXPECT_EQ(run("Error no Not  this one\nMkDir late\n"), "0 0 0 ");
    EXPECT_STREQ(copy_error(), "Not  this one");
    EXPECT_EQ(run("Error no\nWFile /dev/full dir\nWFile x/f dir\nRFile x/f got\n", 0),
              "1 0 0 Failed to write (/dev/full), No space left on device|Failed to write (x/f), "
              "No such file or directory|Failed to read (x/f), No such file or directory");
}

} // namespace
