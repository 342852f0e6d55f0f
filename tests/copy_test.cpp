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

    // The commands of a script, each with the fields it has.
    static std::string told(const copy *script)
    {
        std::string commands;
        for (unsigned i = 0; i < copy_count(script); i++) {
            unsigned row = 0;
            while (copy_word(row) && copy_word_type(row) != script->list[i].type)
                row++;
            commands += copy_word(row) ? copy_word(row) : "Unknown";
            for (const auto &[name, field] : {std::pair("source", &copy_src),
                                              {"not", &copy_not},
                                              {"dest", &copy_dst},
                                              {"control", &copy_control},
                                              {"compare", &copy_control_cmp}})
                if (const char *text = field(script, i))
                    commands += std::string(" ") + name + "=" + text;
        }
        return commands;
    }

    // The errors since the last call, each behind a comma.
    std::string errors()
    {
        std::string text = new_errors();
        for (size_t at = 0; (at = text.find('|', at)) != std::string::npos;)
            text.replace(at, 1, ", ");
        return text.empty() ? "" : ", " + text;
    }

    Store store = store_of({{"dir", "/srv"}, {"no", "no"}, {"yes", "1"}, {"full", "FULL"}});
};

TEST_F(CopyTest, LinesBecomeCommands)
{
    expect_rows({"copyfile $(dir)/a b $(dir)$(x)/c=>CopyFile source=/srv/a not=b dest=/srv$(x)/c",
                 "  CopyDir a - c k v more=>CopyDir source=a dest=c control=k compare=v",
                 "CHMOD a - 7 k=>Chmod source=a dest=7 control=k", "RmFile a -=>RmFile source=a",
                 "RmDir\ta n k v=>RmDir source=a not=n control=k compare=v",
                 "MkDir a k=>MkDir source=a control=k", "Ini a b k=>Ini source=a dest=b control=k",
                 "RFile a b k v=>RFile source=a dest=b control=k compare=v",
                 "Error a  two  words =>Error source=a dest= two  words", "Error a=>Error source=a",
                 "# no=>",
                 "CopyFile=>, Missing copy source path, Missing not wildcard, "
                 "Missing copy destination path",
                 "Error=>, Missing copy source path", "Ini a=>, Missing copy destination path",
                 "RmFile a=>, Missing not wildcard",
                 "Spoon a b c=>Unknown source=a not=b dest=c, Unknown copy type 'Spoon'"},
                [this](const Fields &row) {
                    const std::string commands = told(load(row[0]).get());
                    return commands + errors();
                });
    // An unknown word takes over the type of a line that was dropped in its place. A line over 999
    // characters goes on as the next one.
    EXPECT_EQ(told(load("RmFile a\nSpoon a b c\n").get()), "RmFile source=a not=b dest=c");
    const std::string wide(990, 'm');
    EXPECT_EQ(told(load("MkDir " + wide + " a 00\n").get()), "MkDir source=" + wide + " control=a");
    EXPECT_EQ(errors(),
              ", Missing not wildcard, Unknown copy type 'Spoon', Unknown copy type '00', "
              "Missing copy source path, Missing not wildcard, Missing copy destination "
              "path");
    const Script script = load("");
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
