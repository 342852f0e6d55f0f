#include "lib.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <random>
#include <string_view>

#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "rows.h"
#include "support.h"

namespace {

using LibFiles = InDirectory;

std::string numbered(long number, const char *text)
{
    return std::to_string(number) + ":" + text;
}

TEST(Lib, CopiesAndAppendsAreCut)
{
    char path[path_size];
    char line[line_size];
    EXPECT_EQ(scpy(path, std::string(256, 'x').c_str()), 255);
    EXPECT_EQ(scpy(line, std::string(1000, 'x').c_str()), 999);
    EXPECT_TRUE(scpy(line, nullptr) == 0 && line[0] == '\0');
    const auto appended = [&](const Fields &row) {
        scpy(path, row.text(0));
        return numbered(scat(path, row.text(1), row.number<int>(2)), path);
    };
    expect_rows({"xy|abc|5=>3:xya", "|abc|2=>0:", "x|a|2=>1:x", "abcdef|g|5=>4:abcd"}, appended);
    EXPECT_STREQ(sreplace("abcdex", "x", "12", path, 5), "abcd");
    EXPECT_STREQ(sreplace("x-x", "x", "xx", path, 5), "xx-x");
}

TEST(Lib, TruthWords)
{
    // "1" for true words, "2" for false ones, "0" for neither.
    const auto judged = [](const Fields &row) {
        std::string answers;
        for (const std::string &word : row)
            answers += std::to_string(istrue(word.c_str()) + 2 * isfalse(word.c_str()));
        return answers;
    };
    expect_rows({"true|YES|y|On|checked|Selected|-2|5 apples=>11111111",
                 "false|No|n|OFF|0|00| 0|-0|x0|0.5=>2222222222",
                 "|maybe|xx0|  0|-|yes | no|tru=>00000000"},
                judged);
    EXPECT_EQ(istrue(nullptr) + isfalse(nullptr), 0);
}

// --- The formatter --------------------------------------------------------------------------

template <typename... Values> std::string formatted(const char *format, Values... values)
{
    char text[line_size];
    const int length = plp_snprintf(text, line_size, format, values...);
    return length == static_cast<int>(std::string(text).size()) ? text : "a wrong length";
}

TEST(LibFormat, OwnRules)
{
    const char *const missing = nullptr;
    EXPECT_EQ(formatted("%*d%%|%-*d|%*d", 4, 42, 4, 42, -4, 42), "  42%|42  |42");
    EXPECT_EQ(formatted("[%s][%9s][%.2s]", missing, missing, missing), "[(NULL)][(NULL)][(NULL)]");
    EXPECT_EQ(formatted("%5d|%-5d|%05d|%+d|%x|%#o|%u", 42, 42, -42, 42, 255, 8, -1),
              "   42|42   |-0042|+42|ff|010|4294967295");
    EXPECT_EQ(formatted("%.2f|%e|%G|%c", 1.005, 12345.0, 1e-9, 'c'), "1.00|1.234500e+04|1E-09|c");
    for (const char *const format : {"100%", "100%-0", "100%5.", "100%.3", "100%+ #"})
        EXPECT_EQ(formatted(format, 0), "100") << format;
}

TEST(LibFormat, CutsFieldsAndLiteralsDifferently)
{
    const auto cut = [](const Fields &row) {
        std::string bytes(row.number<size_t>(1) + 1, '~');
        const char *const text = "abcdefgh";
        const int length =
            plp_snprintf(bytes.data(), row.number<unsigned>(1), row.text(0), text, text);
        std::replace(bytes.begin(), bytes.end(), '\0', '0');
        return numbered(length, bytes.c_str());
    };
    // The format, the size; the bytes then in the buffer, of which '0' is the terminator.
    expect_rows({"%s|5=>4:abcd0~", "%.4s!|5=>-1:abcd!~", "%s!|5=>-1:abcd!~", "%s%%|5=>-1:abcd%~",
                 "%.3s%s|5=>4:abca0~", "%12s|5=>4:    0~", "wxyz|5=>4:wxyz0~", "wxyzw|5=>-1:wxyzw~",
                 "%s|1=>0:0~", "x|0=>-1:~"},
                cut);
    char text[5];
    EXPECT_EQ(numbered(lprintf(text, 5, "abcde"), text), "4:abcd");
}

// --- Paths ----------------------------------------------------------------------------------

TEST(LibPaths, AreTakenApart)
{
    char path[path_size] = "a\\b/c.tar.gz";
    char part[path_size];
    EXPECT_EQ(numbered(get_ext(part, path, 5), part), "4:tar.");
    EXPECT_STREQ(strip_ext(path), "a\\b/c.tar");
    EXPECT_STREQ(strip_path(path), "c.tar");
    EXPECT_EQ(shown(spre(path, "b/", 7)) + shown(spre(path, "b/", 8)), "(null)b/c.tar");
    EXPECT_EQ(shown(strip_file(path, part, path_size)) + part, "bc.tar");
    EXPECT_STREQ(Text(sadd(smake("abc", 3), "c")).get(), "abc");
}

TEST(LibPaths, AreJoined)
{
    char path[path_size];
    const auto joined = [&](const Fields &row) {
        scpy(path, row.text(0));
        return shown(attach_path(path, row.text(1), row.number<unsigned>(2)));
    };
    expect_rows({"/opt|x.log|256=>/opt/x.log", "/opt/|/x|256=>/opt/x", "|/x|256=>/x",
                 "a\\b|c\\d|256=>a/b/c/d", "||256=>(null)", "abc|de|6=>abc/d", "abcd|e|5=>abcd"},
                joined);
    const std::string above(250, 'd');
    EXPECT_FALSE(join_path(path, above.c_str(), "12345"));
    EXPECT_TRUE(join_path(path, (above + "/").c_str(), "1234"));
    EXPECT_EQ(path, above + "/1234");
    EXPECT_TRUE(join_path(path, "a\\b", "c\\d") && path == std::string("a\\b/c\\d"));
    EXPECT_STREQ(attach_ext(path, ".log", 10), "a\\b/c\\d.l");
}

// --- Wildcards ------------------------------------------------------------------------------

// What a pattern means where case counts, written down directly; it takes exponential time.
bool meant(std::string_view text, std::string_view pattern)
{
    if (text.empty() || pattern.empty())
        return text.empty() && pattern.find_first_not_of('*') == pattern.npos;
    if (pattern[0] != '*')
        return (pattern[0] == '?' || text[0] == pattern[0]) &&
               meant(text.substr(1), pattern.substr(1));
    const size_t stars = pattern.find_first_not_of('*');
    bool found = stars == pattern.npos;
    for (size_t at = 0; at < text.size() && !found; at++)
        found = text[at] == pattern[stars] && meant(text.substr(at), pattern.substr(stars));
    return found;
}

TEST(LibWildcards, AgreeWithTheirMeaningInNoTime)
{
    std::mt19937 random(20'000);
    const auto any_of = [&random](const std::string &letters, size_t most) {
        std::string text(random() % (most + 1), '\0');
        for (char &letter : text)
            letter = letters[random() % letters.size()];
        return text;
    };
    for (int pair = 0; pair < 20'000; pair++) {
        std::string text = any_of("aaAbb?*", 9);
        std::string pattern = any_of("aAb??**", 7);
        const bool folded = wmatch(text.c_str(), pattern.c_str(), 0);
        ASSERT_EQ(wild_match(text.c_str(), pattern.c_str()), meant(text, pattern))
            << text << " against " << pattern;
        std::ranges::replace(text, 'A', 'a');
        std::ranges::replace(pattern, 'A', 'a');
        ASSERT_EQ(folded, meant(text, pattern)) << text << " against " << pattern;
    }
    EXPECT_EQ(wmatch(std::string(50'000, 'a').c_str(), "*a?*a?*a?*a?*a?*a?*a?*a?*a?*a?*b", 1), 0);
    EXPECT_TRUE(wild_list("a b,c", "x\t,,c") && !wild_list("ab", "a b") && !wild_list("", ""));
    // What the meaning above leaves open: bytes that are no ASCII, and brackets.
    EXPECT_TRUE(!wmatch("\xC4", "\xE4", 0) && wild_match("[a]", "[a]") && !wild_match("a", "[a]"));
}

// --- Files of text --------------------------------------------------------------------------

// All that a reader gives, each ended by a comma.
template <typename Next> std::string all_from(Next next)
{
    std::string all;
    while (const char *line = next())
        all += std::string(line) + ",";
    return all;
}

TEST_F(LibFiles, LinesAndFields)
{
    const auto lines_and_content = [](const Fields &row) {
        write_text("text", row[0]);
        LineReader lines("text");
        LineReader content("text");
        const std::string all = all_from([&] { return lines.next(); });
        EXPECT_FALSE(lines.failed());
        return all + "|" + all_from([&] { return content.next_content(); });
    };
    const std::string x(999, 'x');
    expect_rows({"=>|",
                 "one\r\n\n  # no\n \ttwo 2 \n#\nlast=>one,,# no,two 2,#,last,|one,two 2,last,",
                 x + "\n" + x + "yy\nz=>" + x + ",," + x + ",yy,z,|" + x + "," + x + ",yy,z,",
                 x + "#=>" + x + ",#,|" + x + ",", std::string("a\0b\nc\n\0d\n=>a,c,,|a,c,", 21)},
                lines_and_content);
    LineReader of_directory(".");
    EXPECT_EQ(of_directory.next(), nullptr);
    EXPECT_TRUE(of_directory.failed() && errno == EISDIR && !LineReader("none").is_open());
}

// A line's first character, its number in the file, and "+" when it goes on in another piece.
TEST_F(LibFiles, LinesTellTheirNumber)
{
    const auto numbered_lines = [](const Fields &row) {
        write_text("text", "[s]\n" + row[0]);
        SectionReader reader("text", "s");
        std::string all;
        while (const char *line = reader.next())
            all += *line + std::to_string(reader.number()) + (reader.is_cut() ? "+ " : " ");
        return all;
    };
    const std::string x(999, 'x'), y(999, 'y');
    expect_rows({"a\n\n#\n  b\r\nc=>a2 b5 c6 ", x + "\nb=>x2 b3 ", x + "=>x2 ",
                 x + "y\nb=>x2+ y2 b3 ", x + y + "\nb\n=>x2+ y2 b3 ",
                 x + y + "z\nb=>x2+ y2+ z2 b3 ", std::string(998, 'x') + "\nb=>x2 b3 ",
                 std::string(998, 'x') + '\0' + "y\nb=>x2+ y2 b3 "},
                numbered_lines);
}

TEST_F(LibFiles, OnlyTheFirstSectionOfItsNameIsRead)
{
    const auto section = [](const Fields &row) {
        write_text("text", row[0]);
        SectionReader reader("text", "install");
        const std::string lines = all_from([&] { return reader.next(); });
        return numbered(reader.found(), lines.c_str()) + shown(reader.next());
    };
    expect_rows({"x\n[Install]\n a \n#c\n\nb\n[upgrade]\nc\n=>1:a,b,(null)",
                 "[install]\na\n[install]\nb\n=>1:a,(null)",
                 "[install]\na\n[x\nb\n[install]\nc\n=>1:a,(null)", "[install\na\n=>1:a,(null)",
                 "[install] x\na\n=>0:(null)", "[install]]\na\n=>0:(null)",
                 "[ install]\na\n=>0:(null)", "[install]=>1:(null)", "=>0:(null)"},
                section);
}

TEST_F(LibFiles, OpeningNeverWaitsAndClosingTellsWhatWasLost)
{
    ASSERT_EQ(::mkfifo("fifo", 0666), 0);
    EXPECT_TRUE(!create_text("fifo") && !append_text("fifo") && !LineReader("fifo").next());
    Stream full(create_text("/dev/full"));
    EXPECT_TRUE(std::fputs("lost", full.get()) >= 0 && !close_written(full) && errno == ENOSPC);
}

// --- The terminal ---------------------------------------------------------------------------

TEST(LibTerminal, AnInterruptedReadGoesOnAndIsNoReasonForAnything)
{
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGALRM, &interrupt, nullptr), 0);
    std::array<int, 2> ends;
    ASSERT_EQ(::pipe(ends.data()), 0);
    const pid_t typist = ::fork();
    for (const char *text : {"ab", "c\n", ""})
        if (typist == 0 && ::usleep(50'000) == 0 && ::write(ends[1], text, std::strlen(text)) < 0)
            ::_exit(1);
    if (typist == 0)
        ::_exit(0);
    ::close(ends[1]);
    const int before = ::dup(STDIN_FILENO);
    ::dup2(ends[0], STDIN_FILENO);
    const itimerval often = {.it_interval = {0, 5'000}, .it_value = {0, 5'000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    char line[line_size] = "";
    EXPECT_EQ(read_input(line, line_size), Input::line);
    EXPECT_STREQ(line, "abc");
    errno = 0;
    EXPECT_TRUE(read_input(line, line_size) == Input::end && errno == 0);
    const itimerval never = {};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::dup2(before, STDIN_FILENO);
    std::clearerr(stdin);
    EXPECT_EQ(::waitpid(typist, nullptr, 0), typist);
}

} // namespace
