// A product's lines: what each is to the installer, and where an entry of a run stands.
#include "product.h"

#include "rows.h"
#include "support.h"

namespace {

using ProductTest = InDirectory;

constexpr const char *kinds[] = {"blank", "comment", "header", "entry", "dropped", "outside"};

std::string kind_of(const Line &line)
{
    return kinds[static_cast<size_t>(line.kind)];
}

TEST_F(ProductTest, EveryLineIsWhatTheInstallerTakesItFor)
{
    write_text("web.dat", "\n# note\nname  a value\nempty\n" + std::string(1200, 'x') + "\n");
    write_text("web.int", "Exist a found\nCppy b c - -\n");
    write_text("web.q", "Text early\n[Install]\nText a - - - A\nText b\nLoop a 0\n");
    write_text("web.cpy",
               "[install]\nMkDir a # gate\nCopyFile a\nCopy a b c\n[install]\nMkDir b\n");
    Product product;
    std::string problem;
    ASSERT_TRUE(load_product(".", "", product, problem)) << problem;
    expect_rows(
        {
            "dat|1=>blank",
            "dat|2=>comment",
            "dat|3=>entry",
            "dat|4=>entry",
            "int|1=>dropped",
            "int|2=>entry",
            "q|1=>outside",
            "q|2=>header",
            "q|3=>entry",
            "q|4=>dropped",
            "q|5=>entry",
            "cpy|2=>entry",
            "cpy|3=>dropped",
            "cpy|4=>entry",
        },
        [&](const Fields &row) {
            for (const FileKind kind :
                 {FileKind::data, FileKind::init, FileKind::questions, FileKind::copy})
                if (product.file(kind)->name == "web." + row[0])
                    return kind_of(product.file(kind)->lines.at(row.number<size_t>(1) - 1));
            return std::string();
        });
    EXPECT_EQ(product.data.lines[5].number, 5u);
    EXPECT_TRUE(product.data.lines[5].is_piece);
    // The misspelt word takes over the type of the line before it; the short probe lends its own.
    EXPECT_EQ(product.copy.lines[3].command->type, CpyFile);
    EXPECT_EQ(product.init.lines[1].probe->mode, IExist);
    EXPECT_FALSE(product.copy.sections[1].is_read);
}

TEST_F(ProductTest, AnEntryIsFoundByItsNumber)
{
    write_text("web.dat", "");
    write_text("web.q", "[install]\n\nText a - - - A\nText dropped\n# b\nText b - - - B\n");
    Product product;
    std::string problem;
    ASSERT_TRUE(load_product(".", "web", product, problem)) << problem;
    const Line *line = find_entry(product.questions, "INSTALL", 1);
    ASSERT_TRUE(line);
    EXPECT_EQ(place_of(product.questions, *line), "web.q:6");
    EXPECT_STREQ(line->question->setting, "b");
    EXPECT_FALSE(find_entry(product.questions, "install", 2));
    EXPECT_FALSE(find_entry(product.questions, "upgrade", 0));
}

TEST_F(ProductTest, TheOnlyProductNeedsNoName)
{
    const auto found = [](const char *name) {
        Product product;
        std::string problem;
        return load_product(".", name, product, problem) ? product.name : problem;
    };
    EXPECT_EQ(found(""), "there is no product in '.'");
    write_text("wiki.cpy", "");
    EXPECT_EQ(found(""), "wiki");
    write_text("wiki.dat", "");
    write_text("shop.dat", "");
    EXPECT_EQ(found(""), "there are several products in '.', name one: shop wiki");
    EXPECT_EQ(found("shop"), "shop");
    EXPECT_EQ(found("blog"), "there is no product 'blog' in '.'");
}

} // namespace
