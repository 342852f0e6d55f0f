#include "lib.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <random>
#include <string>

#include <sys/stat.h>

#include "support.h"

namespace {

using LibFiles = InDirectory;

std::string taken(char *text)
{
    const Text owner(text);
    return shown(text);
}

// The fields of a row of a table, divided by '|'.
std::vector<std::string> split(const std::string &row)
{
    std::vector<std::string> fields(1);
    for (const char c : row)
        c == '|' ? fields.emplace_back() : fields.back() += c;
    return fields;
}

unsigned number(const std::string &field)
{
    return static_cast<unsigned>(std::stoul(field));
}

TEST(Lib, TextsAreComparedWithAsciiFoldedOnly)
{
    EXPECT_EQ(s_stricmp("Install", "iNSTALL"), 0);
    EXPECT_EQ(s_stricmp("a", "AB"), -'b');
    EXPECT_EQ(s_stricmp("aB", "a"), 'b');
    EXPECT_NE(s_stricmp("[@", "{`"), 0);
    EXPECT_NE(s_stricmp("\xC4", "\xE4"), 0);
}

TEST(Lib, TrimmingStaysInsideTheText)
{
    for (const auto row :
         {"  a b \r\n|a b", "\n|", "   |", "|", "a|a", "\xA0|\xA0", "\t\v\f\r\n a \n\r\f\v\t|a"}) {
        // The blanks before and the line end behind are not part of the text.
        std::string buffer = " \n" + split(row)[0] + '\0' + "\n";
        EXPECT_EQ(s_strtrm(buffer.data() + 2), split(row)[1]) << row;
        EXPECT_TRUE(buffer.starts_with(" \n") && buffer.ends_with("\n")) << row;
    }
}

TEST(Lib, CopiesAndAppendsAreCut)
{
    char path[path_size];
    EXPECT_EQ(scpy(path, std::string(255, 'x').c_str()), 255);
    EXPECT_EQ(scpy(path, std::string(256, 'x').c_str()), 255);
    EXPECT_EQ(path, std::string(255, 'x'));
    EXPECT_EQ(scat(path, ""), 255);
    scpy(path, std::string(250, 'x').c_str());
    EXPECT_EQ(scat(path, "abcdef"), 254);
    char line[line_size];
    EXPECT_EQ(scpy(line, std::string(1000, 'x').c_str()), 999);
    EXPECT_EQ(scpy(line, nullptr), 0);
    EXPECT_STREQ(line, "");
    // The text, what is appended, the size and what comes out.
    for (const auto row : {"xy|abc|5|xya", "|abc|1|", "|abc|2|", "|abc|3|a", "x|a|2|x", "xyz|a|2|x",
                           "xyz|a|1|", "abc|d|5|abc", "abcd|e|5|abcd", "abcdef|g|5|abcd"}) {
        const auto fields = split(row);
        scpy(path, fields[0].c_str());
        EXPECT_EQ(scat(path, fields[1].c_str(), s_atoi(fields[2].c_str())), fields[3].size());
        EXPECT_EQ(path, fields[3]) << row;
    }
}

TEST(Lib, PiecesOfText)
{
    char text[16] = "";
    for (const auto row : {"ab,c;|16|ab", "abc|3|ab", "abc|1|", "abc|0|abc", ",|9|"}) {
        const auto fields = split(row);
        EXPECT_EQ(schunk(fields[0].c_str(), ";,", text, number(fields[1])), fields[2].size());
        EXPECT_EQ(text, fields[2]) << row;
    }
    scpy(text, "world");
    EXPECT_EQ(spre(text, "hello ", 11), nullptr);
    EXPECT_STREQ(text, "world");
    EXPECT_STREQ(spre(text, "hello ", 12), "hello world");
    EXPECT_EQ(taken(smake("abcdef", 3)) + taken(smake("abcdef", 1)), "ab");
    EXPECT_EQ(taken(smake("abcdef", 100)), "abcdef");
    EXPECT_EQ(taken(sadd(sadd(sadd(nullptr, "a"), "bc"), nullptr)), "abc");
    char *part = s_strdup("keep the tail");
    s_assign(&part, part + 9);
    EXPECT_EQ(taken(part), "tail");
}

TEST(Lib, ReplacingNeverLeavesTheBuffer)
{
    // The source, the search, the replacement, the size and what comes out.
    for (const auto row :
         {"a$xb$x|$x|Q|9|aQbQ", "aaa|aa|b|9|ba", "x-x|x|xx|9|xx-xx", "xxxx|x|yy|5|yyyy",
          "abcdef|z||4|abc", "xabc|x|12345|4|123", "abcdex|x|12|4|abc", "xx|x|1|1|"}) {
        const auto fields = split(row);
        std::vector<char> buffer(number(fields[3]));
        sreplace(fields[0].c_str(), fields[1].c_str(), fields[2].c_str(), buffer.data(),
                 number(fields[3]));
        EXPECT_EQ(buffer.data(), fields[4]) << row;
    }
    char text[8];
    EXPECT_STREQ(sreplace("a$xb", "$x", nullptr, text, 8), "ab");
}

TEST(Lib, TruthWords)
{
    const std::vector<std::string> yes = {"true", "YES", "y",  "On",       "checked", "Selected",
                                          "1",    "-2",  " 5", "5 apples", "2x"};
    const std::vector<std::string> no = {"false", "No", "N",  "Off", "0",        "00", " 0",
                                         "-0",    "+0", "x0", "x5",  "0 apples", "0.5"};
    const std::vector<std::string> neither = {"",     "maybe", "xx0", "  0", "-",
                                              "yes ", "tru",   " no", "offf"};
    for (const auto &[words, is_true, is_false] :
         {std::tuple(yes, 1, 0), std::tuple(no, 0, 1), std::tuple(neither, 0, 0)})
        for (const std::string &word : words) {
            EXPECT_EQ(istrue(word.c_str()), is_true) << word;
            EXPECT_EQ(isfalse(word.c_str()), is_false) << word;
        }
}

// --- The formatter --------------------------------------------------------------------------

template <typename Value> void expect_standard(const std::string &pattern, Value value)
{
    char expected[400];
    char found[400];
    const int length = std::snprintf(expected, 400, pattern.c_str(), value);
    EXPECT_EQ(plp_snprintf(found, 400, pattern.c_str(), value), length) << pattern;
    EXPECT_STREQ(found, expected) << pattern;
}

TEST(LibFormat, FieldsAreThoseOfTheStandardLibrary)
{
    for (const std::string numbers : {"", "1", "9", "70", ".", ".0", ".3", "12.5", "5.30"}) {
        for (const std::string flags : {"", "-", "+", "0", " ", "#", "-+", "+0", "# 0"}) {
            const std::string start = "<%" + flags + numbers;
            for (const char letter : {'d', 'i', 'o', 'u', 'x', 'X'})
                for (const int value : {0, 7, -1, INT_MAX, INT_MIN})
                    expect_standard(start + letter + ">", value);
            for (const char letter : {'e', 'E', 'f', 'g', 'G'})
                for (const double value : {0.0, -1.5, 123456789.125, 1e300})
                    expect_standard(start + letter + ">", value);
        }
        for (const std::string &start : {"<%" + numbers, "<%-" + numbers}) {
            expect_standard(start + "s>", "some text");
            expect_standard(start + "s>", "");
            expect_standard(start + "c>", 'c');
        }
    }
    int here = 0;
    expect_standard("%p", static_cast<void *>(&here));
    expect_standard("%-40p|", static_cast<void *>(&here));
}

template <typename... Values> std::string formatted(const char *format, Values... values)
{
    char text[line_size];
    const int length = plp_snprintf(text, line_size, format, values...);
    EXPECT_EQ(length, std::string(text).size());
    return text;
}

TEST(LibFormat, OwnRules)
{
    const char *const missing = nullptr;
    int count = -1;
    EXPECT_EQ(formatted("%5d%%%-3d|", 42, 7), "   42%7  |");
    EXPECT_EQ(formatted("%*d|%-*d|", 4, 42, 4, 42), "  42|42  |");
    EXPECT_EQ(formatted("%*d|%.*s", -4, 42, -1, "abc"), "42|abc");
    EXPECT_EQ(formatted("%.*s|%*.*s|", 2, "abc", 3, 1, "abc"), "ab|  a|");
    EXPECT_EQ(formatted("[%s][%9s][%.2s]", missing, missing, missing), "[(NULL)][(NULL)][(NULL)]");
    EXPECT_EQ(formatted("%C%S", 'x', "yz"), "xyz");
    EXPECT_EQ(formatted("ab%qcd", &count), "abcd");
    EXPECT_EQ(count, 2);
    EXPECT_EQ(formatted("abc%n", &count), "abc");
    EXPECT_EQ(count, 3);
    for (const char *const format : {"100%", "100%-0", "100%5", "100%5.", "100%.3", "100%+ #"})
        EXPECT_EQ(formatted(format, 0), "100") << format;
}

TEST(LibFormat, CutsFieldsAndLiteralsDifferently)
{
    // The format, the size, and the bytes then in the buffer, of which '0' is the terminator.
    for (const auto row :
         {"%s|5|abcd0", "%.4s|5|abcd0", "%.4s!|5|abcd!", "%s!|5|abcd!", "%s%%|5|abcd%",
          "%.3s%s|5|abca0", "%12s|5|    0", "wxyzwx|5|wxyzw", "wxyz|5|wxyz0", "wxyzw|5|wxyzw",
          "x|1|x", "%s|1|0", "|1|0", "%s|0|", "x|0|"}) {
        const auto fields = split(row);
        const unsigned size = number(fields[1]);
        const size_t end = fields[2].find('0');
        const bool fits = end != std::string::npos;
        std::string buffer(size + 1, '~');
        const char *const text = "abcdefgh";
        EXPECT_EQ(plp_snprintf(buffer.data(), size, fields[0].c_str(), text, text),
                  fits ? static_cast<int>(end) : -1);
        std::replace(buffer.begin(), buffer.end(), '\0', '0');
        EXPECT_EQ(buffer, fields[2] + "~") << row;
        lprintf(buffer.data(), size, fields[0].c_str(), text, text);
        EXPECT_EQ(buffer.substr(0, size),
                  fields[2].substr(0, std::max(size, 1U) - 1) + std::string(size > 0, '\0'))
            << row;
        EXPECT_EQ(buffer.back(), '~') << row;
    }
    char text[5];
    EXPECT_EQ(lprintf(text, 5, "%s", "abcdefgh"), 4);
    EXPECT_EQ(lprintf(text, 5, "abcdefgh"), 4);
    EXPECT_EQ(lprintf(text, 5, "%d", 42), 2);
}

// --- Paths ----------------------------------------------------------------------------------

TEST(LibPaths, AreTakenApart)
{
    // The path, its directory and name, itself without extension, the long extension, the program.
    for (const auto row :
         {"/opt/a/setup.cpy|/opt/a|setup.cpy|/opt/a/setup|cpy|setup", "/name||name|/name|-|name",
          "setup.cpy||setup.cpy|setup|cpy|setup", "./install|.|install|./install|-|install",
          "a\\b.c|a|b.c|a\\b|c|b", "dir.d/file|dir.d|file|dir.d/file|-|file",
          "dir.d\\|dir.d||dir.d\\|-|", "x.tar.gz||x.tar.gz|x.tar|tar.gz|x",
          ".profile||.profile|.profile|profile|", "a/.profile|a|.profile|a/|profile|",
          "file.||file.|file||file", "||||-|"}) {
        const auto fields = split(row);
        char path[path_size];
        char name[path_size] = "-";
        const size_t ext_length = fields[4] == "-" ? 0 : fields[4].size();
        EXPECT_EQ(get_ext(name, fields[0].c_str(), path_size), ext_length) << row;
        EXPECT_EQ(name, fields[4]) << row;
        scpy(path, fields[0].c_str());
        EXPECT_EQ(strip_file(path, name, path_size), fields[1]) << row;
        EXPECT_EQ(name, fields[2]) << row;
        scpy(path, fields[0].c_str());
        EXPECT_EQ(strip_path(path), fields[2]) << row;
        scpy(path, fields[0].c_str());
        EXPECT_EQ(strip_ext(path), fields[3]) << row;
        EXPECT_EQ(exename(path, fields[0].c_str(), path_size), fields[5]) << row;
    }
    char path[] = "/opt/install.x.y";
    char part[4];
    EXPECT_EQ(get_ext(part, "a.tar.gz", 4), 3);
    EXPECT_STREQ(exename(part, path, 4), "ins");
    EXPECT_STREQ(strip_file(path, part, 4), "/opt");
    EXPECT_STREQ(part, "ins");
}

TEST(LibPaths, AreJoined)
{
    char path[path_size];
    // The directory, the name, the size and the whole.
    for (const auto row : {"/opt|x.log|256|/opt/x.log", "/opt/|/x|256|/opt/x", "|x|256|x",
                           "|/x|256|/x", "a|/x|256|a/x", "a\\b|c\\d|256|a/b/c/d", "a\\|\\x|256|a/x",
                           "a/|//x|256|a//x", "||256|(null)", "abc|de|5|abc/", "abc|de|6|abc/d",
                           "abcd|e|5|abcd", "a\\cdef|x|4|a/c", "|x|1|(null)", "a|x|0|(null)"}) {
        const auto fields = split(row);
        scpy(path, fields[0].c_str());
        EXPECT_EQ(shown(attach_path(path, fields[1].c_str(), number(fields[2]))), fields[3]);
    }
    scpy(path, "a\\b");
    EXPECT_STREQ(attach_path(path, nullptr), "a/b");
    for (const char *const joined : {"install.log", "install.l", "install"}) {
        scpy(path, "install");
        EXPECT_STREQ(
            attach_ext(path, ".log", static_cast<unsigned>(std::string(joined).size() + 1)),
            joined);
    }
    const std::string above(250, 'd');
    for (const char *const separator : {"", "/"}) {
        EXPECT_TRUE(join_path(path, (above + separator).c_str(), "1234"));
        EXPECT_EQ(path, above + "/1234");
        EXPECT_FALSE(join_path(path, (above + separator).c_str(), "12345"));
    }
    EXPECT_TRUE(join_path(path, "a\\b", "c\\d"));
    EXPECT_STREQ(path, "a\\b/c\\d");
}

// --- Wildcards ------------------------------------------------------------------------------

TEST(LibWildcards, Match)
{
    const std::vector<const char *> exactly = {"abc|a*",     "abc|a?c", "|*",        "|",
                                               "ab?x|*?x",   "axX|*X",  "a.b.c|*.c", "abab|*ab",
                                               "abc|***c**", "[a]|[a]", "\xC4|\xC4"};
    const std::vector<const char *> folded = {"readme.TXT|*.txt", "abX|*x", "ABC|A*c", "a|A"};
    const std::vector<const char *> never = {"|?",    "a|",        "abx|*?x", "abac|*a?b", "abc|*d",
                                             "a|[a]", "a*b|a\\*b", "ab|ab?",  "\xC4|\xE4", "|**?"};
    for (const auto &[rows, with_case, without] :
         {std::tuple(exactly, 1, 1), std::tuple(folded, 0, 1), std::tuple(never, 0, 0)})
        for (const std::string row : rows) {
            const auto fields = split(row);
            EXPECT_EQ(wmatch(fields[0].c_str(), fields[1].c_str(), 1), with_case) << row;
            EXPECT_EQ(wild_match(fields[0].c_str(), fields[1].c_str()), with_case) << row;
            EXPECT_EQ(wmatch(fields[0].c_str(), fields[1].c_str(), 0), without) << row;
        }
}

// What a pattern means, written down directly; it takes exponential time.
bool meant(const char *text, const char *pattern, bool with_case)
{
    const auto same_letter = [&] { return charmap[0 + *text] == charmap[0 + *pattern]; };
    if (!*pattern)
        return !*text;
    if (*pattern == '*') {
        while (*pattern == '*')
            pattern++;
        bool found = !*pattern;
        for (; *text && !found; text++)
            found = same_letter() && meant(text, pattern, with_case);
        return found;
    }
    const bool same = *pattern == '?' || (with_case ? *pattern == *text : same_letter());
    return *text && same && meant(text + 1, pattern + 1, with_case);
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
    int matching = 0;
    for (int pair = 0; pair < 20'000; pair++) {
        const std::string text = any_of("aaAbb?*", 9);
        const std::string pattern = any_of("aAb??**", 7);
        for (const bool with_case : {true, false}) {
            const bool expected = meant(text.c_str(), pattern.c_str(), with_case);
            ASSERT_EQ(wmatch(text.c_str(), pattern.c_str(), with_case), expected)
                << text << " against " << pattern << (with_case ? ", with case" : "");
            matching += expected;
        }
    }
    EXPECT_GT(matching, 2'000);
    std::string stars;
    for (int star = 0; star < 40; star++)
        stars += "*a?";
    EXPECT_EQ(wmatch(std::string(50'000, 'a').c_str(), (stars + "*b").c_str(), 1), 0);
}

TEST(LibWildcards, Lists)
{
    // The texts, the patterns, and whether they match with and without case.
    for (const auto row : {"readme.TXT|*.doc, *.txt|0|1", "a b,c|x\t,,c|1|1", ", \t|*|0|0",
                           "a| ,|0|0", " ,b|a,b,|1|1", "ab|a b|0|0", "a,B|b|0|1", "||0|0"}) {
        const auto fields = split(row);
        EXPECT_EQ(wild_list(fields[0].c_str(), fields[1].c_str()), number(fields[2])) << row;
        EXPECT_EQ(wild_ilist(fields[0].c_str(), fields[1].c_str()), number(fields[3])) << row;
    }
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
    const std::string x999(999, 'x');
    const struct {
        std::string file, lines, content;
    } rows[] = {
        {"", "", ""},
        {"one\r\n\n  # no\n \ttwo 2 \n#\nlast", "one,,# no,two 2,#,last,", "one,two 2,last,"},
        {x999 + "\n" + x999 + "yy\nz", x999 + ",," + x999 + ",yy,z,", x999 + "," + x999 + ",yy,z,"},
        {x999 + "#tail\n", x999 + ",#tail,", x999 + ","},
        {{"a\0b\nc\n\0d\n", 9}, "a,c,,", "a,c,"},
        {"\xff\xfe\n", "\xff\xfe,", "\xff\xfe,"}};
    for (const auto &row : rows) {
        write_text("text", row.file);
        LineReader reader("text");
        EXPECT_EQ(all_from([&] { return reader.next(); }), row.lines);
        EXPECT_FALSE(reader.failed());
        LineReader content("text");
        EXPECT_EQ(all_from([&] { return content.next_content(); }), row.content);
    }
    LineReader of_directory(".");
    EXPECT_EQ(of_directory.next(), nullptr);
    EXPECT_TRUE(of_directory.failed());
    EXPECT_EQ(errno, EISDIR);
    EXPECT_FALSE(LineReader("none").is_open());
    for (const std::string row : {"a b|a,b,", " \ta\t\tb c |a,b,c,", "|", " \t |", "a.b|a.b,"}) {
        std::string line = split(row)[0];
        char *rest = line.data();
        EXPECT_EQ(all_from([&] { return next_field(&rest); }), split(row)[1]) << row;
        EXPECT_EQ(rest, nullptr);
    }
}

TEST_F(LibFiles, OnlyTheFirstSectionOfItsNameIsRead)
{
    // The file, what its section holds, and whether there is one.
    for (const std::string row :
         {"x\n[Install]\n a \n#c\n\nb\n[upgrade]\nc\n|a,b,|1", "[upgrade]\nc\n[INSTALL]\na|a,|1",
          "[install]\na\n[install]\nb\n|a,|1", "[install]\na\n[other\nb\n[install]\nc\n|a,|1",
          "[install\na\n|a,|1", "[install] x\na\n||0", "[install]]\na\n||0", "[ install]\na\n||0",
          "[]\na\n[\nb\n||0", "[install]||1", "||0"}) {
        const auto fields = split(row);
        write_text("text", fields[0]);
        SectionReader reader("text", "install");
        EXPECT_EQ(all_from([&] { return reader.next(); }), fields[1]) << row;
        EXPECT_EQ(reader.found(), fields[2] == "1") << row;
        EXPECT_EQ(reader.next(), nullptr) << row;
    }
}

TEST_F(LibFiles, DirectoriesOfTheRun)
{
    char path[path_size];
    EXPECT_EQ(shown(currentdir(path, path_size)), directory);
    EXPECT_EQ(currentdir(path, 5), nullptr);
    EXPECT_STREQ(systemdir(path, 3), "/e");
}

TEST_F(LibFiles, OpeningNeverWaitsAndClosingTellsWhatWasLost)
{
    ASSERT_EQ(::mkfifo("fifo", 0666), 0);
    EXPECT_EQ(create_text("fifo"), nullptr);
    EXPECT_EQ(LineReader("fifo").next(), nullptr);
    write_text("file", std::string(2500, 'x') + "\ny");
    EXPECT_EQ(taken(read_text(Stream(open_text("file")).get())), std::string(2500, 'x') + "\ny");
    Stream written(create_text("file"));
    EXPECT_EQ(read_all("file"), "");
    EXPECT_EQ(read_text(Stream(open_text("file")).get()), nullptr);
    std::fputs("kept", written.get());
    EXPECT_TRUE(close_written(written));
    EXPECT_EQ(read_all("file"), "kept");
    Stream full(create_text("/dev/full"));
    std::fputs("lost", full.get());
    EXPECT_FALSE(close_written(full));
    EXPECT_EQ(errno, ENOSPC);
}

TEST(Lib, NullsAreAnswered)
{
    char text[8] = "same";
    FILE *closed = nullptr;
    s_fclose(nullptr);
    s_fclose(&closed);
    EXPECT_FALSE(s_strtrm(nullptr) || s_strstr(nullptr, "a") || s_strstr("a", nullptr));
    EXPECT_FALSE(spre(nullptr, "a", 8) || spre(text, nullptr, 8));
    EXPECT_EQ(taken(s_strdup(nullptr)) + taken(smake(nullptr, 8)), "(null)(null)");
    EXPECT_EQ(taken(smake("a", 0)) + taken(sadd(nullptr, nullptr)), "(null)(null)");
    EXPECT_FALSE(sreplace(nullptr, "a", "b", text, 8) || sreplace("a", nullptr, "b", text, 8));
    EXPECT_FALSE(strip_file(nullptr, text, 8) || strip_path(nullptr) || strip_ext(nullptr) ||
                 attach_path(nullptr, "a", 8) || attach_ext(nullptr, "a", 8) ||
                 exename(nullptr, "a", 8) || exename(text, nullptr, 8) || currentdir(nullptr, 8) ||
                 systemdir(nullptr, 8) || s_fopen(nullptr, "r") || s_fopen("a", nullptr));
    const char *format = nullptr;
    EXPECT_FALSE(s_atoi(nullptr) || istrue(nullptr) || isfalse(nullptr) || scpy(nullptr, "a", 8) ||
                 scpy(text, "a", 0) || scpy(text, "a", -1) || scat(nullptr, "a", 8) ||
                 scat(text, nullptr, 8) || scat(text, "a", 0) || plp_snprintf(nullptr, 8, "a") ||
                 plp_snprintf(text, 8, format) || lprintf(nullptr, 8, "a") ||
                 lprintf(text, 8, format) || get_ext(nullptr, "a.b", 8) ||
                 get_ext(text, nullptr, 8) || schunk(nullptr, ",", text, 8) ||
                 schunk("a", ",", nullptr, 8));
    EXPECT_FALSE(wmatch(nullptr, "*", 1) || wmatch("", nullptr, 1) || wild_match(nullptr, "*") ||
                 wild_match("a", nullptr) || wild_list(nullptr, "*") || wild_list("a", nullptr) ||
                 wild_ilist(nullptr, "*") || wild_ilist("a", nullptr));
    EXPECT_STREQ(text, "same");
    EXPECT_TRUE(s_strcmp(nullptr, nullptr) == -1 && s_strcmp("a", nullptr) == -1 &&
                s_stricmp(nullptr, "a") == -1 && s_stricmp(nullptr, nullptr) == -1);
    char path[] = "dir/file";
    EXPECT_STREQ(strip_file(path, nullptr, 0), "dir");
}

} // namespace
