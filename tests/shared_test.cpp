#include "shared.h"

#include <unistd.h>

#include "rows.h"
#include "support.h"

namespace {

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
        for (int index = 4; index < ini_items(store.get()); index++)
            lines += shown(ini_label(store.get(), index)) + "=" +
                     shown(ini_value(store.get(), index)) + ",";
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
         "bin $(Base)/bin\nbase /opt\nat $(system_dir)\n=>bin=/opt/bin,base=/opt,at=/etc,",
         std::string("a b\0c\nd e\n\0f\n=>a=b,d=e,", 23)},
        [](const Fields &row) { return lines_of(load(row[0])); });
}

// The table grows behind 10 and 15 rows; its end must be there when it is just full.
TEST_F(DataFile, AsManyLinesAsFitAreAllThereIs)
{
    std::string text, expected;
    for (int line = 0; line < 17; line++) {
        EXPECT_EQ(lines_of(load(text)), expected) << line;
        text += "n" + std::to_string(line) + " v\n";
        expected += "n" + std::to_string(line) + "=v,";
    }
}

TEST_F(DataFile, BuiltInSettingsComeFirstAndStay)
{
    char host[line_size];
    ASSERT_EQ(::gethostname(host, line_size), 0);
    const std::string own = "host=other,action=other,current_dir=other,system_dir=other,";
    const Store store = load("host other\naction other\ncurrent_dir other\nsystem_dir other\n");
    EXPECT_EQ(values_of(store, "host system_dir current_dir action"),
              host + ("|/etc|" + directory) + "|install");
    ini_add_name(store.get(), "host", "new");
    ini_add_name(store.get(), "action", "up");
    EXPECT_EQ(values_of(store, "host action") + lines_of(store), host + ("|up" + own));
}

TEST_F(DataFile, AFileThatCannotBeReadIsTold)
{
    const Store store(ini_init());
    EXPECT_EQ(load_datfile(store.get(), "no.dat") + load_datfile(store.get(), "."), 0);
    EXPECT_EQ(new_errors().find("Error opening 'no.dat' for read, No such file or directory|"), 0U);
    EXPECT_TRUE(log_lines().back().ends_with("'.', Is a directory"));
}

} // namespace
