// What the commands of a product make and find, followed without running them.
#include "disk.h"

#include "rows.h"
#include "support.h"

namespace {

class DiskTest : public InDirectory {
  protected:
    DiskTest()
    {
        for (const char *name :
             {"read.me", "pages/a.html", "pages/b.txt", "pages/sub/c.html", "pages/sub/d.txt"})
            write_text(name, "");
    }

    static void load(const std::string &init, const std::string &copy, Product &product)
    {
        write_text("web.int", init);
        write_text("web.cpy", copy);
        std::string problem;
        EXPECT_TRUE(load_product(".", "web", product, problem)) << problem;
    }

    // What is at a path: directories end in '/'.
    static std::string shown_at(const Disk &disk, const std::string &path)
    {
        std::string text;
        for (const std::string &one : disk.found(path))
            text += (text.empty() ? "" : " ") + one + (disk.is_directory(one) ? "/" : "");
        if (!text.empty())
            return text;
        return disk.may_have(path) ? "perhaps" : "nothing";
    }

    // The last field is the path, the others are the commands before.
    static std::string after_commands(const Fields &row)
    {
        std::string copy = "[install]\n";
        for (size_t at = 0; at + 1 < row.size(); at++)
            copy += row[at] + "\n";
        Product product;
        load("", copy, product);
        const Flow flow(product);
        Folder folder(product);
        Disk disk(folder);
        walk_section(product, flow, "install", disk,
                     [](const Line &, const copy_cmd &, const Disk &) {});
        return shown_at(disk, row.back());
    }
};

TEST_F(DiskTest, CommandsMakeWhatLaterOnesFind)
{
    expect_rows(
        {
            "MkDir out|out=>out/",
            "MkDir ./out/|out=>out/",
            "MkDir a/b/c|a/*=>a/b/",
            "CopyFile pages/*.html - out|out/*=>out/a.html",
            "CopyFile pages/* *.txt out|out/*=>out/a.html",
            "CopyFile pages/ - out/|out/*=>out/a.html out/b.txt",
            "CopyFile pages - out|out/*=>nothing",
            "CopyFile nosuch - out|out/nosuch=>nothing",
            "CopyDir pages - out|out/*=>out/pages/",
            "CopyDir pages - out|out/pages/*=>out/pages/a.html out/pages/b.txt out/pages/sub/",
            "CopyDir pages *.html out|out/pages/sub/*=>out/pages/sub/d.txt",
            "CopyDir pages/* - out|out/*=>out/a.html out/b.txt out/sub/",
            "CopyFile pages/* - out|CopyFile out/*.txt - more|more/*=>more/b.txt",
            "CopyFile pages/* - a|CopyFile a/* *.txt b|b/*=>b/a.html",
            "MkDir a/b|CopyDir a - c|c/a/*=>c/a/b/",
            "MkDir $(a)/b|CopyDir $(a)/b - c|c/*=>c/b/",
            "MkDir out|CopyFile /etc/ - out|out=>out/",
            "Ini read.me out/conf|out/*=>out/conf",
            "WFile out/f name|out/*=>out/f",
            "RFile out/f name|out/*=>out/f",
            "Chmod out/f - 644|out/*=>nothing",
        },
        after_commands);
}

TEST_F(DiskTest, WhatIsRemovedOrRenamedIsNotFound)
{
    expect_rows(
        {
            "CopyFile pages/* - out|RmFile out/* *.txt|out/*=>out/b.txt",
            "MkDir out|RmDir out -|out=>nothing",
            "MkDir out|RmDir out - keep false|out=>out/",
            "MkDir out|MkDir outer|RmDir out -|out*=>outer/",
            "CopyDir pages - out|RmDir out/pages -|out/pages/sub/c.html=>nothing",
            "MkDir out|RmDir out -|MkDir out|out=>out/",
            "WFile out/f a|Rename out/f out/g|out/*=>out/g",
            "WFile out/f a|Rename out/f out/g move yes|out/*=>out/f out/g",
            "MkDir out|MkDir outer|Rename out in|*=>in/ outer/",
            "CopyDir pages - out|Rename out/pages p|p/*=>p/a.html p/b.txt p/sub/",
            "Rename read.me done|done=>done",
        },
        after_commands);
}

TEST_F(DiskTest, WhatCannotBeKnownIsTakenForPossible)
{
    expect_rows(
        {
            "read.me=>perhaps",
            "pages/*.html=>perhaps",
            "pages/*.css=>nothing",
            "/etc/nosuch=>perhaps",
            "../nosuch=>perhaps",
            "nosuch=>nothing",
            "no*/such=>perhaps",
            "$(d)/f=>perhaps",
            "MkDir $(d)|$(d)/f=>nothing",
            "MkDir $(d)|$(e)/f=>perhaps",
            "MkDir $(d)|$(d)/$(e)/f=>perhaps",
            "MkDir $(d)|CopyFile /etc/hosts - $(d)|$(d)/*=>$(d)/hosts",
            "MkDir $(d)|CopyFile /etc/* - $(d)|$(d)/f=>perhaps",
            "MkDir $(d)|CopyFile /etc/* - $(d)/x|$(d)/f=>nothing",
        },
        after_commands);
}

// A section and a path.
TEST_F(DiskTest, ASectionFindsWhatCameBeforeIt)
{
    Product product;
    load("WFile probed a - -\n",
         "[install]\nMkDir both\nMkDir old\n[upgrade]\nRmDir old -\nMkDir new\n[remove]\n"
         "MkDir grave/deep\n[tidy]\n",
         product);
    const Flow flow(product);
    Folder folder(product);
    const Disks disks(product, flow, folder);
    expect_rows(
        {
            "install|probed=>probed",
            "install|both=>nothing",
            "Upgrade|both=>both/",
            "upgrade|new=>nothing",
            "remove|probed=>probed",
            "remove|new=>new/",
            "remove|old=>old/",
            "tidy|grave=>nothing",
        },
        [&](const Fields &row) { return shown_at(disks.before(row[0]), row[1]); });
    EXPECT_TRUE(disks.written().contains("grave/deep"));
    EXPECT_EQ(disks.nearest_written("graev/deep"), "grave/deep");
    EXPECT_EQ(disks.nearest_written("grave/deeep"), "grave/deep");
    EXPECT_TRUE(disks.makes_directory("grave"));
    EXPECT_FALSE(disks.makes_directory("grav"));
}

} // namespace
