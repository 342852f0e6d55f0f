#include "shared.h"

#include <unistd.h>

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

    // The settings of the file's own lines, as "name=value" with "(null)" for none.
    static std::string lines_of(const Store &store)
    {
        std::string lines;
        for (int index = 4; index < ini_items(store.get()); index++) {
            EXPECT_EQ(ini_setting_mode(store.get(), index), Ini_Replace);
            lines += shown(ini_label(store.get(), index)) + "=" +
                     shown(ini_value(store.get(), index)) + "|";
        }
        return lines;
    }
};

TEST_F(DataFile, LinesBecomeSettings)
{
    const std::string x(2000, 'x');
    const struct {
        std::string text, lines;
    } rows[] = {
        {"", ""},
        {"name    some value\n", "name=some value|"},
        {"a\t\tb c \t d \r\n\r\n \t\n#no\n  # no\n \t e f\r\n#\ng", "a=b c \t d|e=f|g=(null)|"},
        {"A 1\na 2\na 3\n", "A=1|a=2|a=3|"},
        {"a #1\nb# 2\n", "a=#1|b#=2|"},
        {"a " + x.substr(0, 997) + "\nb 2\n", "a=" + x.substr(0, 997) + "|b=2|"},
        {"a " + x.substr(0, 1000) + " y\n", "a=" + x.substr(0, 997) + "|xxx=y|"},
        {x, x.substr(0, 999) + "=(null)|" + x.substr(0, 999) + "=(null)|xx=(null)|"},
        {{"a b\0c\nd e\n\0f\n", 13}, "a=b|d=e|"},
        {"\xff \xfe\n", "\xff=\xfe|"},
        {"bin $(Base)/bin\nbase /opt\nact <$(action)>\nun $(no)$(who)\nat $(system_dir)\n",
         "bin=/opt/bin|base=/opt|act=<>|un=$(no)$(who)|at=/etc|"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(lines_of(load(row.text)), row.lines) << row.text;
}

TEST_F(DataFile, BuiltInSettingsComeFirstAndStay)
{
    char host[line_size];
    ASSERT_EQ(::gethostname(host, line_size), 0);
    const Store store = load("host other\naction other\ncurrent_dir other\nsystem_dir other\n");
    const struct {
        const char *name;
        std::string value;
        unsigned mode;
        int add_result;
    } rows[] = {{"host", host, 36, -1},
                {"system_dir", "/etc", 36, -1},
                {"current_dir", directory, 36, -1},
                {"action", "install", 0, 1}};
    for (int index = 0; index < 4; index++) {
        const auto &row = rows[index];
        EXPECT_EQ(shown(ini_label(store.get(), index)), row.name);
        EXPECT_EQ(shown(ini_value_name(store.get(), row.name)), row.value);
        EXPECT_EQ(ini_setting_mode_name(store.get(), row.name), row.mode);
        EXPECT_EQ(ini_add_name(store.get(), row.name, "new"), row.add_result);
        EXPECT_TRUE(logged(std::string("Info: ") + row.name + "=" + row.value));
    }
    EXPECT_EQ(lines_of(store), "host=other|action=other|current_dir=other|system_dir=other|");
    EXPECT_TRUE(logged("Debug: Adding 'action'='other'"));
}

TEST_F(DataFile, TheTableGrowsWithTheFile)
{
    for (const int count : {1, 5, 6, 7, 10, 11, 12, 16, 200}) {
        std::string text;
        std::string expected;
        for (int line = 0; line < count; line++) {
            text += "n" + std::to_string(line) + " v\n";
            expected += "n" + std::to_string(line) + "=v|";
        }
        EXPECT_EQ(lines_of(load(text)), expected);
    }
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
