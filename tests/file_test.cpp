#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "file.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

using Record = Owned<File, file_free>;
using Lines = std::vector<std::string>;

Lines told;

void tell(const char *result, const char *source, const char *destination, int mode)
{
    told.push_back(std::string(result) + " " + shown(source) + " " + shown(destination) + " " +
                   std::to_string(mode));
}

class FileTest : public InDirectory {
  protected:
    FileTest()
    {
        told.clear();
        file_setup_fn([](char *a, char *b, int mode) { tell("ok", a, b, mode); },
                      [](char *a, char *b, int mode) { tell("fail", a, b, mode); });
    }
};

Lines sorted(Lines lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

Lines scanned(const char *path, const char *wild)
{
    Lines names;
    FHandle *handle = nullptr;
    File *record = file_first(&handle, path, wild);
    EXPECT_EQ(record == nullptr, handle == nullptr);
    for (bool more = record != nullptr; more; more = file_next(record, handle) == 1)
        names.push_back(file_name(record));
    file_free(&record);
    file_last(&handle);
    return sorted(names);
}

void make_socket(const char *path)
{
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::strcpy(address.sun_path, path);
    const int number = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(number, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ::close(number);
}

// --- Looking ---------------------------------------------------------------------------------

TEST_F(FileTest, AScanDeliversWhatMatches)
{
    const std::string odd = "odd \\ ,\n\xff";
    for (const std::string name : {"a.html", "INDEX.HTML", ".hid", "sub/in", odd.c_str()})
        write_text("d/" + name, "");
    fs::create_symlink("nowhere", "d/link");
    fs::create_directory("empty");
    const Lines all = {"d/.hid", "d/INDEX.HTML", "d/a.html", "d/link", "d/" + odd, "d/sub"};
    EXPECT_EQ(scanned("d", "*"), all);
    EXPECT_EQ(scanned("d/", "*"), all);
    EXPECT_EQ(scanned("d", "*.html"), Lines{"d/a.html"});
    EXPECT_EQ(scanned("d", ".*"), Lines{"d/.hid"});
    EXPECT_EQ(scanned("d", "none"), Lines{});
    EXPECT_EQ(scanned("empty", "*"), Lines{});
    EXPECT_EQ(log_lines(), Lines{});
    EXPECT_EQ(scanned("absent", "*"), Lines{});
    EXPECT_TRUE(logged("Error: Error opening dir 'absent', No such file or directory"));
}

TEST_F(FileTest, AScanPassesOverPathsThatDoNotFit)
{
    const std::string deep(200, 'd');
    write_text(deep + "/" + std::string(54, 'f'), "");
    write_text(deep + "/" + std::string(55, 'x'), "");
    EXPECT_EQ(scanned(deep.c_str(), "*"), Lines{deep + "/" + std::string(54, 'f')});
    ASSERT_EQ(log_lines().size(), 1U);
    EXPECT_TRUE(logged_start("Error: "));
    EXPECT_NE(log_lines()[0].find(std::string(55, 'x')), std::string::npos);
}

TEST_F(FileTest, ARecordTellsAboutTheEntryItself)
{
    write_text("dir/file", "12345");
    fs::create_symlink("dir", "to_dir");
    fs::create_symlink(std::string(150, 't') + "/" + std::string(150, 't'), "dangling");
    EXPECT_EQ(file_exist(nullptr), 0);
    EXPECT_EQ(file_exist("dangling"), 0);
    EXPECT_EQ(file_exist("dir/file"), 1);
    EXPECT_EQ(file_exist("to_dir"), 2);
    EXPECT_EQ(log_lines(),
              (Lines{"Debug: 'dangling' does not exist", "Debug: 'dir/file' exists and is a file",
                     "Debug: 'to_dir' exists and is a directory"}));
    EXPECT_EQ(file_existf("absent"), nullptr);
    Record record(file_existf("dangling"));
    const Record twin(file_dup(record.get()));
    record.reset(file_existf("dir/file"));
    EXPECT_EQ(record->info.st_size, 5);
    EXPECT_TRUE(S_ISLNK(twin->info.st_mode));
    EXPECT_EQ(twin->link, std::string(150, 't') + "/" + std::string(104, 't'));
    EXPECT_EQ(file_getuid("root") + file_getgid("root") + file_usergid("root"), 0);
    EXPECT_EQ(file_getuid("no one") + file_getgid("no one") + file_usergid("no one"), -3);
}

TEST_F(FileTest, ANameIsTakenApartWithinItsBuffer)
{
    const struct {
        const char *name, *file;
        unsigned size;
        const char *path;
    } rows[] = {
        {"/a/b/c.txt", "c.txt", 255, "/a/b"}, {"/a\\b\\c", "c", 255, "/a\\b"},
        {"c.txt", "c.txt", 255, ""},          {"/c.txt", "c.txt", 255, ""},
        {"/a/b/", "", 255, "/a/b"},           {"/ab/cdefgh", "cde", 3, ""},
        {"/ab/cdefgh", "cdefg", 5, "/ab"},    {"/ab/c", "", 0, ""},
    };
    for (const auto &row : rows) {
        const Record record(new File{});
        scpy(record->name, row.name);
        std::vector<char> buffer(row.size + 1);
        EXPECT_STREQ(file_filename(record.get(), buffer.data(), row.size), row.file);
        buffer.assign(std::max(row.size, 1U), '\0');
        file_path(record.get(), buffer.data(), row.size);
        EXPECT_STREQ(buffer.data(), row.path) << row.name << row.size;
    }
}

// --- Copying a file --------------------------------------------------------------------------

TEST_F(FileTest, ACopyHasEveryByte)
{
    unsigned long bytes = 0;
    unsigned long expected = 0;
    for (const size_t size : {0U, 1U, 8191U, 8192U, 8193U, 16385U, 131073U}) {
        std::string content(size, '\0');
        for (size_t i = 0; i < size; i++)
            content[i] = static_cast<char>(i * 7 % 251);
        write_text("from", content);
        EXPECT_EQ(file_copy("from", "to", 1, &bytes), 1);
        EXPECT_TRUE(read_all("to") == content) << size;
        EXPECT_EQ(bytes, expected += size);
        EXPECT_EQ(told.back(), "ok from to 1");
    }
    told.clear();
    EXPECT_EQ(file_copy("absent", "to", 0, &bytes), -1);
    EXPECT_EQ(read_all("to").size(), 131073U);
    EXPECT_EQ(told, Lines{});
    write_text("from", "new");
    EXPECT_EQ(file_copy("from", "to", 1, nullptr), 1);
    EXPECT_EQ(read_all("to"), "new");
}

TEST_F(FileTest, AFailedCopyIsToldWithItsReason)
{
    write_text("file", "content");
    write_text("closed/old", "old");
    write_text("secret", "");
    fs::create_directory("dir");
    fs::permissions("closed", fs::perms(0555));
    fs::permissions("secret", fs::perms::none);
    fs::permissions(".", fs::perms::all);
    ASSERT_EQ(::mkfifo("fifo", 0666), 0);
    ASSERT_EQ(::chmod("fifo", 0666), 0);
    make_socket("socket");
    become_nobody();
    const struct {
        const char *source, *destination, *error;
    } rows[] = {
        {"absent", "empty", "Error opening 'absent' for read, No such file or directory"},
        {"secret", "empty2", "Error opening 'secret' for read, Permission denied"},
        {"file", "dir", "Error opening 'dir' for write, Is a directory"},
        {"file", "closed/new", "Error opening 'closed/new' for write, Permission denied"},
        {"file", "absent/new", "Error opening 'absent/new' for write, No such file or directory"},
        {"file", "/dev/full", "Error writing to '/dev/full', No space left on device"},
        {"file", "fifo", "Error opening 'fifo' for write, No such device or address"},
        {"dir", "from_dir", "Error reading from 'dir', Is a directory"},
        {"fifo", "n1", ""},
        {"socket", "n2", ""},
        {"/dev/zero", "n3", ""},
        {"file", nullptr, ""},
        {nullptr, "n4", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(shown(row.source) + " to " + shown(row.destination));
        const size_t logged_before = log_lines().size();
        unsigned long bytes = 0;
        EXPECT_EQ(file_copy(row.source, row.destination, 1, &bytes), 0);
        EXPECT_EQ(bytes, 0U);
        EXPECT_EQ(told, Lines{"fail " + shown(row.source) + " " + shown(row.destination) + " 1"});
        if (row.source && row.destination) {
            ASSERT_EQ(log_lines().size(), logged_before + 1);
            EXPECT_EQ(log_lines().back().find("Error: " + std::string(row.error)), 0U);
        }
        told.clear();
    }
    EXPECT_EQ(read_all("empty") + read_all("empty2") + read_all("from_dir"), "");
    EXPECT_TRUE(fs::exists("empty") && fs::exists("empty2"));
    EXPECT_FALSE(fs::exists("n1") || fs::exists("n2") || fs::exists("n3") || fs::exists("n4"));
}

TEST_F(FileTest, AFileIsNotCopiedOrMovedOntoItself)
{
    write_text("file", "kept");
    fs::create_symlink("file", "link");
    fs::create_hard_link("file", "hard");
    for (const char *same : {"file", "./file", "link", "hard"}) {
        SCOPED_TRACE(same);
        EXPECT_EQ(file_copy("file", same, 1, nullptr), 0);
        EXPECT_EQ(file_copy(same, "file", 1, nullptr), 0);
        EXPECT_EQ(file_move("file", same, 1, nullptr), 0);
        EXPECT_EQ(told.size(), 3U);
        EXPECT_EQ(told[0], std::string("fail file ") + same + " 1");
        EXPECT_EQ(read_all("file"), "kept");
        told.clear();
    }
    EXPECT_TRUE(logged("Error: Error copying 'file' onto itself, Invalid argument"));
    // A skipped copy lets a move remove its source, but not when that is all there is.
    EXPECT_EQ(file_move("file", "link", 0, nullptr), 0);
    EXPECT_EQ(file_move("file", "./file", 0, nullptr), 0);
    EXPECT_EQ(read_all("hard") + read_all("file"), "keptkept");
    write_text("old", "old");
    EXPECT_EQ(file_move("hard", "old", 0, nullptr), 1);
    EXPECT_EQ(read_all("old"), "old");
    EXPECT_FALSE(fs::exists("hard"));
}

// --- Trees -----------------------------------------------------------------------------------

// Fills a directory with files and directories of odd names; the bytes in the files.
size_t grow(const std::string &directory, int depth, std::minstd_rand &random)
{
    constexpr std::string_view odd = "aZ \\\n\xff\x01*?[-,.'\"#$(";
    fs::create_directory(directory);
    size_t bytes = 0;
    for (int entry = 0; entry < 5; entry++) {
        std::string name = std::to_string(entry);
        for (auto letters = random() % 6; letters > 0; letters--)
            name += odd[random() % odd.size()];
        const std::string path = directory + "/" + name;
        if (depth > 0 && entry % 2 == 0) {
            bytes += grow(path, depth - 1, random);
        } else {
            write_text(path, std::string(random() % 20000, name.back()));
            bytes += read_all(path).size();
        }
    }
    return bytes;
}

TEST_F(FileTest, TreesWithOddNamesComeOverWhole)
{
    std::minstd_rand random(7);
    for (int round = 0; round < 5; round++) {
        const std::string from = "from" + std::to_string(round);
        unsigned long bytes = 0;
        const size_t size = grow(from, 2, random);
        const Lines tree = tree_of(from);
        const auto count = static_cast<int>(tree.size() + 1);
        EXPECT_EQ(file_xcopy(from.c_str(), "*", nullptr, "copy/all", 1, &bytes), count);
        EXPECT_EQ(bytes, size);
        ASSERT_TRUE(tree_of("copy/all") == tree);
        ASSERT_EQ(std::system(("cp -r " + from + " cp && diff -r cp copy/all").c_str()), 0);
        file_xmove(from.c_str(), nullptr, nullptr, "moved", 1, nullptr);
        ASSERT_TRUE(tree_of("moved") == tree);
        EXPECT_EQ(tree_of(from), Lines{});
        EXPECT_EQ(file_rmdir("moved", nullptr, 1), count);
        fs::remove_all("copy");
        fs::remove_all("cp");
    }
}

TEST_F(FileTest, ExclusionsHoldAtEveryLevel)
{
    for (const char *name : {"s/a.cfg", "s/B.CFG", "s/c", "s/d/a.cfg", "s/d/c", "s/d/e/a.cfg"})
        write_text(name, name);
    fs::create_directory("s/odd\\name");
    const struct {
        const char *wild, *not_list;
        int recurse, count;
        Lines tree;
    } rows[] = {
        {"*",
         "x, *.cfg",
         1,
         7,
         {"B.CFG=s/B.CFG", "c=s/c", "d/", "d/c=s/d/c", "d/e/", "odd\\name/"}},
        {nullptr, "*.cfg d", 1, 4, {"B.CFG=s/B.CFG", "c=s/c", "odd\\name/"}},
        {"?", nullptr, 0, 3, {"c=s/c", "d/"}},
        {"odd*", nullptr, 0, 2, {"odd\\name/"}},
        {"none", nullptr, 1, 1, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(shown(row.wild) + " not " + shown(row.not_list));
        EXPECT_EQ(file_xcopy("s", row.wild, row.not_list, "to", row.recurse, nullptr), row.count);
        EXPECT_EQ(tree_of("to"), row.tree);
        fs::remove_all("to");
    }
}

TEST_F(FileTest, ATreeGoesIntoItselfWithoutLoss)
{
    for (int (*transfer)(const char *, const char *, const char *, const char *, int,
                         unsigned long *) : {file_xcopy, file_xmove}) {
        fs::remove_all("s");
        write_text("s/a", "A");
        write_text("s/d/b", "B");
        write_text("s/d/to/old", "O");
        told.clear();
        transfer("s", "*", nullptr, "s/d/to", 1, nullptr);
        EXPECT_EQ(read_all("s/d/to/a") + read_all("s/d/to/d/b") + read_all("s/d/to/old"), "ABO");
        EXPECT_FALSE(fs::exists("s/d/to/d/to"));
        EXPECT_TRUE(logged_start("Error: "));
        EXPECT_EQ(fs::exists("s/a"), transfer == file_xcopy);
    }
}

TEST_F(FileTest, WhatCannotBeMovedStays)
{
    write_text("s/d/good", "G");
    write_text("s/d/keep.cfg", "K");
    write_text("s/e/x", "X");
    ASSERT_EQ(::mkfifo("s/d/fifo", 0666), 0);
    fs::create_symlink("nowhere", "s/dangling");
    EXPECT_EQ(file_xmove("s", "*", "*.cfg", "to", 1, nullptr), 6);
    EXPECT_EQ(tree_of("s"), (Lines{"d/", "d/fifo", "d/keep.cfg=K", "dangling"}));
    EXPECT_EQ(tree_of("to"), (Lines{"d/", "d/good=G", "dangling=", "e/", "e/x=X"}));
    EXPECT_TRUE(logged_start("Error: Failed to remove moved directory 'to/d'"));
    // Without recursion an existing file wins, and the source goes all the same.
    write_text("s/good", "new");
    write_text("to/good", "old");
    EXPECT_EQ(file_xmove("s", "[gd]*", nullptr, "to", 0, nullptr), 0);
    EXPECT_EQ(file_xmove("s", "g*", nullptr, "to", 0, nullptr), 1);
    EXPECT_EQ(read_all("to/good"), "old");
    EXPECT_FALSE(fs::exists("s/good"));
}

TEST_F(FileTest, DirectoriesAreMadeInChains)
{
    write_text("file", "");
    EXPECT_EQ(file_mkdir("a\\b/c/", 1), 1);
    EXPECT_EQ(told, (Lines{"ok a (null) 1", "ok a/b (null) 1", "ok a/b/c (null) 1"}));
    EXPECT_TRUE(logged("Debug: Directory created 'a/b/c'"));
    told.clear();
    EXPECT_EQ(file_mkdir("a/b/c", 1), 1);
    EXPECT_EQ(file_mkdir("a/b", 0), 1);
    EXPECT_EQ(file_mkdir("file", 1), 1);
    EXPECT_EQ(file_mkdir(nullptr, 1), 0);
    EXPECT_EQ(told, Lines{});
    EXPECT_EQ(file_mkdir("n/m\\", 0), 0);
    EXPECT_TRUE(logged("Error: Error creating directory 'n/m', No such file or directory"));
    EXPECT_EQ(file_mkdir("file/sub", 1), 0);
    EXPECT_EQ(told, (Lines{"fail n/m (null) 1", "fail file/sub (null) 1"}));
    const std::string fits = std::string(127, 'x') + "/" + std::string(127, 'y');
    EXPECT_EQ(file_mkdir(fits.c_str(), 1), 1);
    EXPECT_EQ(file_mkdir((fits + "z").c_str(), 1), 0);
    EXPECT_EQ(told.back().substr(0, 5), "fail ");
    become_nobody();
    ::umask(0);
    EXPECT_EQ(file_mkdir("mine", 0), 1);
    EXPECT_EQ(fs::status("mine").permissions(), fs::perms(0775));
    EXPECT_EQ(file_mkdir("a/shut", 0), 0);
    EXPECT_TRUE(logged("Error: Error creating directory 'a/shut', Permission denied"));
}

TEST_F(FileTest, DirectoriesGoWithAllButTheExclusions)
{
    write_text("outside/x", "X");
    write_text("d/s/f", "");
    fs::create_directory_symlink("../../outside", "d/s/link");
    EXPECT_EQ(file_rmdir("d", nullptr, 0), 0);
    EXPECT_EQ(told, Lines{"fail d (null) 0"});
    told.clear();
    EXPECT_EQ(file_rmdir("d", "*.cfg", 1), 4);
    EXPECT_EQ(sorted(told), (Lines{"ok d (null) 0", "ok d/s (null) 0", "ok d/s (null) 0",
                                   "ok d/s/f (null) 0", "ok d/s/link (null) 0"}));
    EXPECT_EQ(tree_of("outside"), Lines{"x=X"});
    told.clear();
    for (const char *name : {"d/keep.cfg", "d/B.CFG", "d/s/keep.cfg"})
        write_text(name, "");
    EXPECT_EQ(file_rmdir("d", "*.cfg", 1), 1);
    EXPECT_EQ(sorted(told), (Lines{"fail d (null) 0", "fail d/s (null) 0", "fail d/s (null) 0",
                                   "ok d/B.CFG (null) 0"}));
    EXPECT_EQ(tree_of("d"), (Lines{"keep.cfg=", "s/", "s/keep.cfg="}));
}

TEST_F(FileTest, ModesAndOwnersAreChanged)
{
    write_text("f", "");
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    const Record record(file_existf("f"));
    constexpr auto unknown = static_cast<unsigned>(-1);
    EXPECT_EQ(file_chown(record.get(), 12, unknown), 1);
    const Record changed(file_existf("f"));
    EXPECT_EQ(changed->info.st_uid + changed->info.st_gid, 24U);
    EXPECT_EQ(file_chmod(record.get(), 0640), 1);
    EXPECT_EQ(fs::status("f").permissions(), fs::perms(0640));
    become_nobody();
    EXPECT_EQ(file_chown(record.get(), unknown, 12), 0);
    EXPECT_EQ(log_lines(), Lines{});
    EXPECT_EQ(file_chmod(record.get(), 0755), 0);
    EXPECT_EQ(file_chown(record.get(), 12, 13), 0);
    EXPECT_EQ(log_lines(),
              (Lines{"Error: Error changing mode of 'f' to 493, Operation not permitted",
                     "Error: Error changing ownership of 'f' to uid=12, gid=13, Operation not "
                     "permitted"}));
}

} // namespace
