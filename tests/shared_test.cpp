#include "shared.h"

#include <unistd.h>

#include "rows.h"
#include "support.h"

namespace {

std::string value_in(const Store &store, const char *name)
{
    return shown(ini_value_name(store.get(), name));
}

class DataFile : public InDirectory {
  protected:
    ~DataFile() override { clear_datfile(); }

    // A store filled from a data file of this text.
    static Store load(const std::string &text)
    {
        write_text("my.dat", text);
        Store store(ini_init());
        EXPECT_EQ(load_datfile(store.get(), "my.dat"), 1);
        return store;
    }

    // The settings of the file's own lines, as "name=value,".
    static std::string lines_of(const Store &store)
    {
        std::string lines;
        for (int index = 4; index < ini_items(store.get()); index++) {
            EXPECT_EQ(ini_setting_mode(store.get(), index), Ini_Replace);
            lines += shown(ini_label(store.get(), index)) + "=" +
                     shown(ini_value(store.get(), index)) + ",";
        }
        return lines;
    }
};

TEST_F(DataFile, LinesBecomeSettings)
{
    const std::string x997(997, 'x');
    expect_rows(
        {"=>", "name    some value\n=>name=some value,", "A 1\na 2\na 3\n=>A=1,a=2,a=3,",
         "a\t\tb c \t d \r\n\r\n \t\n#no\n  # no\n \t e f\r\n#\ng=>a=b c \t d,e=f,g=(null),",
         "a #1\nb# 2\n=>a=#1,b#=2,", "\xff \xfe\n=>\xff=\xfe,",
         "a " + x997 + "\nb 2\n=>a=" + x997 + ",b=2,", "a " + x997 + "yy z\n=>a=" + x997 + ",yy=z,",
         "bin $(Base)/bin\nbase /opt\nact <$(action)>\nun $(no)\nat $(system_dir)\n"
         "=>bin=/opt/bin,base=/opt,act=<>,un=$(no),at=/etc,",
         std::string("a b\0c\nd e\n\0f\n=>a=b,d=e,", 23)},
        [](const Fields &row) { return lines_of(load(row[0])); });
    for (const int count : {5, 6, 7, 10, 11, 12, 200}) {
        std::string text;
        std::string expected;
        for (int line = 0; line < count; line++) {
            text += "n" + std::to_string(line) + " v\n";
            expected += "n" + std::to_string(line) + "=v,";
        }
        EXPECT_EQ(lines_of(load(text)), expected);
    }
}

TEST_F(DataFile, BuiltInSettingsComeFirstAndStay)
{
    char host[line_size];
    ASSERT_EQ(::gethostname(host, line_size), 0);
    const Store store = load("host other\naction other\ncurrent_dir other\nsystem_dir other\n");
    const auto told = [&](const Fields &row) {
        const char *const name = row.text(1);
        EXPECT_TRUE(logged("Info: " + row[1] + "=" + value_in(store, name)));
        EXPECT_STREQ(ini_label(store.get(), row.number<int>(0)), name);
        const unsigned mode = ini_setting_mode_name(store.get(), name);
        const std::string value = value_in(store, name);
        return value + " " + std::to_string(mode) + " " +
               std::to_string(ini_add_name(store.get(), name, "new"));
    };
    expect_rows({std::string("0|host=>") + host + " 36 -1", "1|system_dir=>/etc 36 -1",
                 "2|current_dir=>" + directory + " 36 -1", "3|action=>install 0 1"},
                told);
    EXPECT_EQ(lines_of(store), "host=other,action=other,current_dir=other,system_dir=other,");
    EXPECT_TRUE(logged("Debug: Adding 'action'='other'"));
}

TEST_F(DataFile, AFileThatCannotBeReadIsTold)
{
    const Store store(ini_init());
    EXPECT_EQ(load_datfile(store.get(), "no.dat"), 0);
    EXPECT_TRUE(logged("Error: Error opening 'no.dat' for read, No such file or directory"));
    EXPECT_EQ(load_datfile(store.get(), "."), 0);
    EXPECT_TRUE(log_lines().back().ends_with("'.', Is a directory"));
    EXPECT_EQ(load_datfile(store.get(), nullptr) + load_datfile(nullptr, "my.dat"), 0);
    EXPECT_EQ(ini_items(store.get()), 0);
    clear_datfile();
    clear_datfile();
}

} // namespace
