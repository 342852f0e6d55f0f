#include <algorithm>
#include <csignal>
#include <filesystem>
#include <tuple>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "file.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

using Record = Owned<File, file_free>;

std::vector<std::string> calls;

std::string sorted(std::vector<std::string> lines)
{
    std::ranges::sort(lines);
    return joined(lines);
}

template <char result> void tell(char *source, char *destination, int mode)
{
    calls.push_back(result + shown(source) + " " + shown(destination) + (mode ? "" : " 0"));
}

// What the callbacks were told since the last call: + for success, - for failure, 0 for mode 0.
std::string news()
{
    return sorted(std::exchange(calls, {}));
}

class FileTest : public InDirectory {
  protected:
    FileTest()
    {
        calls.clear();
        file_setup_fn(tell<'+'>, tell<'-'>);
    }
};

std::string scanned(const std::string &path, const char *wild)
{
    std::vector<std::string> names;
    FHandle *handle = nullptr;
    Record record(file_first(&handle, path.c_str(), wild));
    for (bool more = record != nullptr; more; more = file_next(record.get(), handle) == 1)
        names.push_back(record->name);
    file_last(&handle);
    return sorted(names);
}

TEST_F(FileTest, AScanDeliversWhatMatches)
{
    for (const char *name : {"a.html", "INDEX.HTML", ".hid", "sub/in", "odd \\ ,\n\xff"})
        write_text(std::string("d/") + name, "");
    fs::create_symlink("none", "d/link");
    EXPECT_EQ(scanned("d/", "*"), "d/.hid|d/INDEX.HTML|d/a.html|d/link|d/odd \\ ,\n\xff|d/sub");
    EXPECT_EQ(scanned("d", "*.html"), "d/a.html");
    EXPECT_EQ(scanned("d", "x*") + scanned("none", "*"), "");
    EXPECT_EQ(new_errors(), "Error opening dir 'none', No such file or directory");
    const std::string deep(200, 'd');
    write_text(deep + "/" + std::string(54, 'f'), "");
    write_text(deep + "/" + std::string(55, 'x'), "");
    EXPECT_EQ(scanned(deep, "*"), deep + "/" + std::string(54, 'f'));
    EXPECT_NE(new_errors().find(std::string(55, 'x')), std::string::npos);
}

TEST_F(FileTest, ARecordTellsWhereItIs)
{
    write_text("a/b/c", "");
    const Record record(file_dup(Record(file_existf("a/b/c")).get()));
    char part[path_size];
    EXPECT_STREQ(file_filename(record.get(), part, path_size), "c");
    EXPECT_STREQ(file_path(record.get(), part, path_size), "a/b");
}

TEST_F(FileTest, ACopyHasEveryByte)
{
    std::string bytes_of_all_kinds;
    for (int byte = 0; byte < 251; byte++)
        bytes_of_all_kinds += static_cast<char>(byte * 7 % 251);
    unsigned long bytes = 0;
    unsigned long expected = 0;
    for (const size_t size : {2097153U, 131073U, 0U, 1U, 8191U, 8192U, 8193U, 16385U}) {
        std::string content;
        while (content.size() < size)
            content += bytes_of_all_kinds;
        content.resize(size);
        write_text("from", content);
        EXPECT_EQ(file_copy("from", "to", 1, &bytes), 1);
        EXPECT_TRUE(read_all("to") == content) << size;
        EXPECT_EQ(bytes, expected += size);
        EXPECT_EQ(news(), "+from to");
    }
    EXPECT_EQ(file_copy("absent", "to", 0, &bytes), -1);
    EXPECT_EQ(read_all("to").size(), 16385U);
}

TEST_F(FileTest, WhatWasWrittenInPartCountsItsWholeBlocks)
{
    ::signal(SIGXFSZ, SIG_IGN);
    for (const auto &[size, room] : {std::pair(200'000, 100'000), {3'000'000, 2'000'000}}) {
        write_text("from", std::string(static_cast<size_t>(size), 'x'));
        const rlimit limit = {.rlim_cur = static_cast<rlim_t>(room), .rlim_max = RLIM_INFINITY};
        const rlimit none = {.rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY};
        unsigned long bytes = 0;
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        const int copied = file_copy("from", "to", 1, &bytes);
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
        EXPECT_EQ(copied, 0);
        EXPECT_EQ(bytes, static_cast<unsigned long>(room / 8192 * 8192));
        EXPECT_EQ(read_all("to").size(), static_cast<size_t>(room));
        EXPECT_EQ(new_errors(), "Error writing to 'to', File too large");
    }
}

TEST_F(FileTest, AFailedCopyIsToldWithItsReason)
{
    for (const char *name : {"file", "secret", "closed/old", "w/x"})
        write_text(name, "content");
    fs::permissions("secret", fs::perms::none);
    fs::permissions("w", fs::perms::all);
    fs::permissions("closed", fs::perms(0555));
    ASSERT_EQ(::mkfifo("fifo", 0666) | ::chmod("fifo", 0666), 0);
    become_nobody();
    const std::tuple<const char *, const char *, std::string> rows[] = {
        {"absent", "w/e1", "Error opening 'absent' for read, No such file or directory"},
        {"secret", "w/e2", "Error opening 'secret' for read, Permission denied"},
        {"closed", "w/e3", "Error reading from 'closed', Is a directory"},
        {"file", "w", "Error opening 'w' for write, Is a directory"},
        {"file", "closed/new", "Error opening 'closed/new' for write, Permission denied"},
        {"file", "/dev/full", "Error writing to '/dev/full', No space left on device"},
        {"file", "fifo", "Error opening 'fifo' for write, No such device or address"},
        {"fifo", "w/n", "Error opening 'fifo' for read, "},
        {"/dev/zero", "w/n", "Error opening '/dev/zero' for read, "}};
    for (const auto &[source, destination, error] : rows) {
        EXPECT_EQ(file_copy(source, destination, 1, nullptr), 0) << error;
        EXPECT_EQ(news(), std::string("-") + source + " " + destination);
        EXPECT_EQ(new_errors().substr(0, error.size()), error);
    }
    EXPECT_EQ(joined(tree_of("w")), "e1=|e2=|x=content");
}

TEST_F(FileTest, WhatTookThePlaceOfASourceCostsTheCopyNothing)
{
    write_text("to/x", "old");
    const std::pair<const char *, void (*)()> rows[] = {
        {"", [] {}},
        {"-from/x to/x", [] { fs::create_symlink("/etc/passwd", "from/x"); }},
        {"-from/x to/x", [] { ASSERT_EQ(::mkfifo("from/x", 0666), 0); }},
        {"-from/x to/x", [] { fs::create_directory("from/x"); }}};
    for (const auto &[expected, take_place] : rows) {
        write_text("from/x", "new");
        const Scan scan("from", "*");
        fs::remove("from/x");
        take_place();
        EXPECT_EQ(file_xcopy(scan, nullptr, "to", nullptr), 0);
        EXPECT_EQ(news(), expected);
        EXPECT_EQ(joined(tree_of("to")), "x=old");
        fs::remove_all("from");
    }
}

TEST_F(FileTest, AFileIsNotCopiedOrMovedOntoItself)
{
    write_text("file", "kept");
    fs::create_symlink("file", "link");
    fs::create_hard_link("file", "hard");
    for (const std::string same : {"file", "./file", "link", "hard"}) {
        EXPECT_EQ(file_copy("file", same.c_str(), 1, nullptr), 0);
        EXPECT_EQ(news(), "-file " + same);
        EXPECT_EQ(file_move("file", same.c_str(), 1, nullptr), 0);
        EXPECT_EQ(file_copy(same.c_str(), "file", 1, nullptr), 0);
        EXPECT_EQ(news().find("-"), 0U);
        EXPECT_EQ(read_all("file"), "kept") << same;
    }
    // A skipped copy lets a move remove its source, but not when that is all there is.
    EXPECT_EQ(file_move("file", "./file", 0, nullptr), 0);
    EXPECT_EQ(read_all("file"), "kept");
}

TEST_F(FileTest, TreesComeOverWholeButForTheExclusions)
{
    for (const std::string name : {"a", "-b", "c\\d", "e \n", "\xff\x01", "*?[", "'\"#$("})
        for (const std::string above : {"from/", "from/sub/", "from/\\ \n*/-d/"})
            write_text(above + name, above + name);
    const auto tree = tree_of("from");
    const auto count = static_cast<int>(tree.size() + 1);
    EXPECT_EQ(file_xcopy("from", "*", nullptr, "to/all", 1, nullptr), count);
    EXPECT_EQ(tree_of("to/all"), tree);
    file_xmove("from", nullptr, nullptr, "moved", 1, nullptr);
    EXPECT_TRUE(tree_of("moved") == tree && tree_of("from").empty());
    EXPECT_EQ(file_rmdir("moved", nullptr, 1), count);
    for (const char *name : {"s/a.cfg", "s/B.CFG", "s/d/a.cfg", "s/d/c", "s/d/e/a.cfg"})
        write_text(name, "");
    EXPECT_EQ(file_xcopy("s", "*", "x, *.cfg", "to/s", 1, nullptr), 5);
    EXPECT_EQ(joined(tree_of("to/s")), "B.CFG=|d/|d/c=|d/e/");
    EXPECT_EQ(file_xcopy("s", "?", nullptr, "to/flat", 0, nullptr), 2);
    EXPECT_EQ(joined(tree_of("to/flat")), "d/");
}

TEST_F(FileTest, WhatCannotBeMovedStays)
{
    for (const char *name : {"s/a", "s/d/b", "s/d/to/old"})
        write_text(name, name);
    file_xmove("s", "*", nullptr, "s/d/to", 1, nullptr);
    EXPECT_EQ(joined(tree_of("s")),
              "d/|d/to/|d/to/a=s/a|d/to/d/|d/to/d/b=s/d/b|d/to/old=s/d/to/old");
    fs::remove_all("s");
    for (const char *name : {"s/d/good", "s/d/keep.cfg", "s/e/x", "s/old"})
        write_text(name, "new");
    write_text("to/old", "old");
    ASSERT_EQ(::mkfifo("s/d/fifo", 0666) | ::symlink("nowhere", "s/dangling"), 0);
    // Without recursion an existing file wins, and the source goes all the same.
    EXPECT_EQ(file_xmove("s", "o*", nullptr, "to", 0, nullptr), 1);
    EXPECT_EQ(file_xmove("s", "*", "*.cfg", "to", 1, nullptr), 5);
    EXPECT_EQ(joined(tree_of("s")), "d/|d/fifo|d/keep.cfg=new|dangling");
    EXPECT_EQ(joined(tree_of("to")), "d/|d/good=new|dangling=|e/|e/x=new|old=old");
    EXPECT_NE(new_errors().find("Failed to remove moved directory 'to/d'"), std::string::npos);
    // A link to a directory has no content to copy, so it takes none from what is there.
    fs::create_directory_symlink("e", "to/link");
    write_text("there", "kept");
    EXPECT_EQ(file_copy("to/link", "there", 1, nullptr), 0);
    EXPECT_EQ(read_all("there"), "kept");
}

TEST_F(FileTest, DirectoriesAreMadeInChainsAndRemoved)
{
    write_text("file", "");
    EXPECT_EQ(file_mkdir("a\\b/c/", 1), 1);
    EXPECT_EQ(news(), "+a (null)|+a/b (null)|+a/b/c (null)");
    EXPECT_EQ(file_mkdir("a/b/c", 1) + file_mkdir("n/m\\", 0) + file_mkdir("file/s", 1), 1);
    EXPECT_EQ(news(), "-file/s (null)|-n/m (null)");
    const std::string fits = std::string(127, 'x') + "/" + std::string(127, 'y');
    EXPECT_EQ(file_mkdir(fits.c_str(), 1) + file_mkdir((fits + "z").c_str(), 1), 1);
    for (const char *name : {"d/s/f", "d/keep.cfg", "d/B.CFG", "d/t/keep.cfg", "outside/x"})
        write_text(name, "");
    fs::create_directory_symlink("../../outside", "d/s/link");
    EXPECT_EQ(file_rmdir("d", nullptr, 0) + file_rmdir("d", "*.cfg", 1), 4);
    EXPECT_EQ(joined(tree_of("d")) + joined(tree_of("outside")), "keep.cfg=|t/|t/keep.cfg=x=");
}

} // namespace
