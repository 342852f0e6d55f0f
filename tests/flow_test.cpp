// What is known of a product's settings before it runs. A row is a product, each line behind the
// file it stands in; "?" marks the line that looks at its settings.
#include "flow.h"

#include "rows.h"
#include "support.h"

namespace {

// A product written in a row, and the marked line of it.
struct RowProduct {
    explicit RowProduct(const Fields &row)
    {
        std::map<std::string, std::string> texts = {
            {"dat", ""}, {"int", ""}, {"q", "[install]\n"}, {"cpy", "[install]\n"}};
        std::pair<std::string, size_t> marked;
        for (const std::string &field : row) {
            const bool is_marked = field.starts_with('?');
            const size_t blank = field.find(' ');
            const std::string file = field.substr(is_marked, blank - is_marked);
            std::string &text = texts.at(file);
            if (is_marked)
                marked = {file, std::count(text.begin(), text.end(), '\n')};
            text += field.substr(blank + 1) + "\n";
        }
        for (const auto &[file, text] : texts)
            write_text("web." + file, text);
        std::string problem;
        EXPECT_TRUE(load_product(".", "web", product, problem)) << problem;
        for (const FileKind kind :
             {FileKind::data, FileKind::init, FileKind::questions, FileKind::copy})
            if (product.file(kind)->name == "web." + marked.first)
                looking = &product.file(kind)->lines.at(marked.second);
    }

    Product product;
    const Line *looking = nullptr;
};

std::string values_in(const Value &value)
{
    std::vector<std::string> values(value.texts.begin(), value.texts.end());
    if (value.anything)
        values.insert(values.begin(), "anything");
    if (value.may_be_none)
        values.insert(values.begin(), "none");
    std::string text;
    for (const std::string &one : values)
        text += (text.empty() ? "" : " or ") + one;
    return text;
}

// What the setting "a" can be at the marked line.
std::string value_at(const Fields &row)
{
    const RowProduct written(row);
    return values_in(Flow(written.product).at(*written.looking, "a"));
}

using FlowTest = InDirectory;

TEST_F(FlowTest, TheDataFileGivesASettingItsFirstValue)
{
    expect_rows(
        {
            "?cpy MkDir $(a)=>none",
            "dat a x|?cpy MkDir $(a)=>x",
            "dat a|?cpy MkDir $(a)=>none",
            "dat A x|?cpy MkDir $(a)=>none",
            "dat a x|dat a y|?cpy MkDir $(a)=>x",
            "dat b x|dat a $(b)/$(b)|?cpy MkDir $(a)=>x/x",
            "dat a $(b)/y|dat b x|?cpy MkDir $(a)=>x/y",
            "dat b x|dat a $(B)/y|?cpy MkDir $(a)=>x/y",
            "dat a $(b)/y|?cpy MkDir $(a)=>$(b)/y",
            "dat a $(current_dir)/y|?cpy MkDir $(a)=>$(current_dir)/y",
        },
        value_at);
}

TEST_F(FlowTest, AProbeStoresWhatItFindsWhereItsGateMayOpen)
{
    expect_rows(
        {
            "int Exist f a - -|?cpy MkDir $(a)=>false or true",
            "int Exist f a b -|?cpy MkDir $(a)=>false or true",
            "int Exist f a b c|?cpy MkDir $(a)=>none or false or true",
            "dat a x|int Exist f a - -|?cpy MkDir $(a)=>false or true",
            "dat a x|int Exist f a b c|?cpy MkDir $(a)=>false or true or x",
            "dat b x|int Copy a b - -|?cpy MkDir $(a)=>x",
            "int Copy a b - -|?cpy MkDir $(a)=>b",
            "int Exist f b c d|int Copy a b - -|?cpy MkDir $(a)=>b or false or true",
            "dat a x|int Copy a y - -|int Copy a z - -|?cpy MkDir $(a)=>z",
            "int Copy a y - -|int Copy a z - -|?cpy MkDir $(a)=>y or z",
            "int RFile f a - -|?cpy MkDir $(a)=>none or anything",
            "dat a x|int RFile f a - -|?cpy MkDir $(a)=>anything or x",
            "dat b %Y|int TimeDate b a - -|?cpy MkDir $(a)=>anything or %Y",
            "int HTTP_Root a b - -|?cpy MkDir $(a)=>none or anything",
            "int HTTP_Root b a - -|?cpy MkDir $(a)=>none or true",
            "dat a x|int WFile f a - -|?cpy MkDir $(a)=>x",
            "dat a x|?int WFile f a - -|int Copy a y - -=>x",
        },
        value_at);
}

TEST_F(FlowTest, AQuestionStoresItsAnswerWhereItIsAsked)
{
    expect_rows(
        {
            "q Text a - - - A|?cpy MkDir $(a)=>anything",
            "q Text a b c - A|?cpy MkDir $(a)=>none or anything",
            "dat a x|q Dir a b - - A|?cpy MkDir $(a)=>anything or x",
            "q YN a - - - A|?cpy MkDir $(a)=>false or true",
            "dat a x|q YN a b - - A|?cpy MkDir $(a)=>false or true or x",
            "q Exist f a|?cpy MkDir $(a)=>false or true",
            "dat b x|q Copy a - - - b|?cpy MkDir $(a)=>x",
            "q Copy a - - - unknown|?cpy MkDir $(a)=>none",
            "dat a x|q Copy a - - - unknown|?cpy MkDir $(a)=>x",
            // A jump may pass over what lies before its target.
            "dat a x|dat b y|q Loop l 2|q Copy a - - - b|?cpy MkDir $(a)=>x or y",
            "dat a x|dat b y|q Loop l 1|q Copy a - - - b|?cpy MkDir $(a)=>y",
            // Whoever goes back comes by with what a later line has set.
            "dat a x|dat b y|?q Exist $(a) f|q Copy a - - - b=>x or y",
            "dat a x|q Text b - - - $(a)|?q Error a - No=>x",
            // Nothing of one section is known in another.
            "q Text a - - - A|q [upgrade]|cpy [upgrade]|?cpy MkDir $(a)=>none",
            "q [Upgrade]|q Text a - - - A|cpy [upgrade]|?cpy MkDir $(a)=>anything",
        },
        value_at);
}

// A command's fields are filled in when its section is loaded; its gate is looked at when it runs.
TEST_F(FlowTest, ACommandSetsWhatLaterOnesLookAt)
{
    expect_rows(
        {
            "cpy Exist f a|?cpy MkDir d a true=>false or true, loaded with none",
            "cpy Exist f a b c|?cpy MkDir d a true=>none or false or true, loaded with none",
            "dat a x|cpy Exist f a|?cpy MkDir d a true=>false or true, loaded with x",
            "dat a x|cpy RFile f a|?cpy MkDir d a true=>anything or x, loaded with x",
            "?cpy MkDir d a true|cpy Exist f a=>none, loaded with none",
            "q YN a - - - A|?cpy MkDir d a true=>false or true, loaded with false or true",
            "cpy Exist f a|cpy [remove]|?cpy MkDir d a true=>none, loaded with none",
        },
        [](const Fields &row) {
            const RowProduct written(row);
            const Flow flow(written.product);
            return values_in(flow.at(*written.looking, "a")) + ", loaded with " +
                   values_in(flow.at_load(*written.looking, "a"));
        });
}

TEST_F(FlowTest, BuiltInSettingsAreThereAndTooManyValuesAreAnything)
{
    const RowProduct written(Fields("?cpy CopyFile $(host)$(action) - $(current_dir)"));
    const Flow flow(written.product);
    EXPECT_EQ(values_in(flow.at(*written.looking, "host")), "anything");
    EXPECT_EQ(values_in(flow.at(*written.looking, "action")), "install");
    std::string row;
    for (int number = 10; number < 26; number++)
        row += "int Copy a " + std::to_string(number) + " - -|";
    EXPECT_TRUE(value_at(Fields(row + "?cpy MkDir $(a)")).ends_with("or 24 or 25"));
    EXPECT_EQ(value_at(Fields(row + "int Copy a 26 - -|?cpy MkDir $(a)")), "anything");
}

TEST_F(FlowTest, EveryKindOfLineMentionsItsSettings)
{
    constexpr const char *roles[] = {"reference", "control", "compare",
                                     "source",    "value",   "target"};
    expect_rows(
        {
            "?dat a $(b)$(c=>reference b",
            "?int Exist $(a) b c d=>control c, reference a, target b",
            "?int Exist a b c -=>compare c, target b",
            "?int WFile $(a) b - -=>reference a, value b",
            "?int RFile $(a) b - -=>reference a, target b",
            "?int Copy a b - -=>value b, target a",
            "?int TimeDate a b - -=>source a, target b",
            "?int HTTP_User a b - -=>target a, target b",
            "?q Text a b c h Your $(d)=>reference d, control b, compare c, target a",
            "?q YN a b - - Your $(d)=>reference d, control b, target a",
            "?q Text a - c - Text=>target a",
            "?q Copy a - - - b=>source b, target a",
            "?q Exist $(a)/f b=>reference a, target b",
            "?q Error a - No $(b)=>reference b, source a",
            "?q Loop a 0=>source a",
            "?cpy MkDir $(a) b c=>control b, compare c, reference a",
            "?cpy CopyFile $(a)/* *.b $(c)/$(d)=>reference a, reference c, reference d",
            "?cpy Exist $(a) b=>reference a, target b",
            "?cpy RFile $(a) b=>reference a, target b",
            "?cpy WFile $(a) b=>reference a, value b",
            "?cpy Error a No $(b)=>source a, reference b",
        },
        [&](const Fields &row) {
            const RowProduct written(row);
            const Flow flow(written.product);
            std::string text;
            for (const Mention *mention : flow.mentions_of(*written.looking))
                text += (text.empty() ? "" : ", ") +
                        std::string(roles[static_cast<size_t>(mention->role)]) + " " +
                        mention->name;
            return text;
        });
}

// The last field is the path, as a command has it.
TEST_F(FlowTest, APathIsFilledInWithWhatIsCertain)
{
    expect_rows(
        {
            "dat d x|$(d)/f=>x/f",
            "dat d x|a/$(d)/$(d).$(e=>a/x/x.$(e",
            "dat d|$(d)/f=>$(d)/f",
            "$(d)/f=>$(d)/f",
            "dat d x|q Text d - - - D|$(d)/f=>$(d)/f",
            "dat host x|$(host)/f=>$(host)/f",
            "dat d $(current_dir)/x|$(d)/f=>x/f",
            "$(current_dir)/././f=>f",
            "a/./f=>a/./f",
        },
        [](Fields row) {
            const std::string path = row.back();
            row.pop_back();
            const RowProduct written(row);
            return Flow(written.product).path(path);
        });
}

// A word, and the words there are.
TEST(Nearest, AMisspeltWordHasOneThatIsNear)
{
    expect_rows(
        {
            "web_rot|web_root=>web_root",
            "web_orot|web_root=>web_root",
            "web_rxxt|web_root=>web_root",
            "web_xxxt|web_root=>",
            "wbe_rxot|web_root=>web_root",
            "WEB_ROOT|web_rook|web_root=>web_root",
            "prot|post|port=>port",
            "pork|port|park=>port",
            "a|ab=>",
            "abc|ab=>",
            "host|user=>",
        },
        [](const Fields &row) {
            return nearest_word(row[0], Words({row.begin() + 1, row.end()}));
        });
    EXPECT_EQ(distance("abcd", "badc", 4), 2u);
    EXPECT_EQ(distance("abcd", "wxyz", 2), 3u);
}

} // namespace
