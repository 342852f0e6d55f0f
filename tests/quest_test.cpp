#include <cerrno>
#include <cstring>
#include <filesystem>

#include "quest.h"
#include "support.h"

namespace {

using Set = Owned<questions, quest_free>;

Set loaded(const std::string &lines, const Store &store)
{
    write_text("my.q", "[s]\n" + lines);
    Set set(quest_init(store.get()));
    EXPECT_EQ(quest_load(set.get(), "my.q", "S"), 1);
    return set;
}

std::string described(const Set &set)
{
    std::string text;
    for (unsigned i = 0; i < quest_count(set.get()); i++)
        text += std::to_string(quest_type(set.get(), i)) + "," +
                shown(quest_setting(set.get(), i)) + "," + shown(quest_control(set.get(), i)) +
                "," + shown(quest_control_cmp(set.get(), i)) + "," +
                shown(quest_help(set.get(), i)) + "," + shown(quest_text(set.get(), i)) + "\n";
    return text;
}

using QuestTest = InDirectory;

TEST_F(QuestTest, LinesBecomeQuestions)
{
    const struct {
        const char *lines, *questions, *error; // error: null when nothing is logged
    } rows[] = {
        {"Text s - - - What  now? \r\n", "1,s,(null),(null),-,What  now?\n", nullptr},
        {"yn\ts c  cmp h y?\n# no\n", "2,s,c,cmp,h,y?\n", nullptr},
        {"Dir a - - h t\nDirExist a - - h t\nDirEmpty a - - h t\nFile a - - h t\n"
         "FileExist a - - h t\nFileName a - - h t\nCopy a - - h t\n",
         "4,a,(null),(null),h,t\n260,a,(null),(null),h,t\n8196,a,(null),(null),h,t\n"
         "8,a,(null),(null),h,t\n264,a,(null),(null),h,t\n16,a,(null),(null),h,t\n"
         "1024,a,(null),(null),h,t\n",
         nullptr},
        {"Exist /etc/$(x) found\nLoop again 3\nError s h It  failed\n",
         "512,found,(null),(null),(null),/etc/$(x)\n4096,again,(null),(null),(null),3\n"
         "2048,s,(null),(null),h,It  failed\n",
         nullptr},
        {"What s - - h t\n", "0,s,(null),(null),h,t\n", "Unknown question type 'What'"},
        {"Text\n", "", "Missing setting label"},
        {"Text s\n", "", "Missing control"},
        {"Text s c\n", "", "Missing control comparison"},
        {"Text s c cmp\n", "", "Missing Help ID text"},
        {"Exist path\n", "", "Missing Help ID text"},
        {"Loop s\n", "", "Missing Help ID text"},
        // A dropped line leaves nothing behind.
        {"YN s c cmp h\nText t - - - T\n", "1,t,(null),(null),-,T\n", "Missing question text"},
        {"YN s c cmp h\nWhat t - - - T\n", "0,t,(null),(null),-,T\n",
         "Unknown question type 'What'"},
        // Each escape leaves one character of the old end behind.
        {"Text s - - - one\\ntwo\n", "1,s,(null),(null),-,one\ntwoo\n", nullptr},
        {"Text s - - - a\\tb\\\\c\\\n", "1,s,(null),(null),-,a\tb\\c\\c\\\n", nullptr},
        {"Text s - - - 1\n[t]\nText t - - - 2\n[s]\nText u - - - 3\n", "1,s,(null),(null),-,1\n",
         nullptr},
    };
    for (const auto &row : rows) {
        const size_t logged_before = log_lines().size();
        EXPECT_EQ(described(loaded(row.lines, store_of({}))), row.questions) << row.lines;
        if (row.error) {
            EXPECT_TRUE(logged("Error: " + std::string(row.error))) << row.lines;
        }
        EXPECT_EQ(log_lines().size() > logged_before, row.error != nullptr) << row.lines;
    }
}

TEST_F(QuestTest, OneSectionIsLoadedAtATime)
{
    const Store store = store_of({});
    const Set set = loaded("Text a - - - A\n[t] x\nText n - - - N\n[T]\nText b - - - B\n", store);
    write_text("my.q", std::string(read_all("my.q")) + "[s]\nText c - - - C\n");
    EXPECT_EQ(quest_load(set.get(), "absent", "s"), 1);
    EXPECT_EQ(quest_load(set.get(), "my.q", "t"), 1);
    EXPECT_EQ(described(set), "1,b,(null),(null),-,B\n");
    EXPECT_EQ(quest_text(set.get(), 1), nullptr);
    EXPECT_EQ(quest_type(set.get(), 1), 0U);
    errno = EPERM;
    EXPECT_EQ(quest_load(set.get(), "my.q", "none"), 0);
    EXPECT_EQ(quest_count(set.get()), 0U);
    EXPECT_TRUE(logged("Error: Section 'none' not found"));
    EXPECT_STREQ(quest_error(), "");
    EXPECT_EQ(quest_load(set.get(), "absent", "s"), 0);
    EXPECT_STREQ(quest_error(), "Error opening 'absent', No such file or directory");
}

TEST_F(QuestTest, AnswersAreJudgedByType)
{
    write_text("full/file", "");
    std::filesystem::create_directory("empty");
    const struct {
        const char *type, *answer, *value, *error;
    } rows[] = {
        {"Text", " a b", " a b", ""},
        {"What", "x/", "x/", ""},
        {"YN", "Yes", "true", ""},
        {"YN", "0", "false", ""},
        {"YN", "OFF", "false", ""},
        {"YN", "maybe", "(none)", "You must answer either Yes or No"},
        {"Dir", "/opt/app/", "/opt/app", ""},
        {"Dir", "a\\\\", "a\\", ""},
        {"DirExist", "full/", "full", ""},
        {"DirExist", "no/", "(none)", "Directory 'no' must exist, No such file or directory"},
        {"FileExist", "full/file", "full/file", ""},
        {"FileExist", "no", "(none)", "File 'no' must exist, No such file or directory"},
        {"DirEmpty", "absent/", "absent", ""},
        {"DirEmpty", "empty", "empty", ""},
        {"DirEmpty", "full/", "(none)", "Directory 'full' must be empty"},
        {"File", "x/", "x/", ""},
        {"FileName", "/tmp/pkg/setup.tar", "setup", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.type) + " " + row.answer);
        const Store store = store_of({});
        const Set set = loaded(std::string(row.type) + " s - - - ?", store);
        char answer[line_size];
        scpy(answer, row.answer);
        errno = EPERM;
        EXPECT_EQ(quest_answer(set.get(), 0, answer), *row.error ? 0 : 1);
        EXPECT_EQ(values_of(store, "s"), row.value);
        if (*row.error) {
            EXPECT_STREQ(quest_error(), row.error);
            EXPECT_TRUE(logged("Error: " + std::string(row.error)));
        }
    }
}

TEST_F(QuestTest, AQuestionIsPutWithItsDefault)
{
    const std::string words = "12345678 ";
    const std::string tail(70, 't');
    const std::string solid(200, 'x');
    const struct {
        std::string line, dflt, input, printed, answer; // answer: "" when there is none
    } rows[] = {
        {"Text s - - - Where", "/usr", "\n", "Where [/usr]? ", "/usr"},
        {"Text s - - - For $(product)", "", "  a b \t\r\nnext", "For Cat []? ", "  a b"},
        {"Text s - - - Where", "", " \n", "Where []? ", ""},
        {"Text s - - - Where", "d", "", "Where [d]? ", "before"},
        {"YN s - - - Ok", "TRUE", "\n", "Ok [y]? ", "y"},
        {"YN s - - - Ok", "word", "\n", "Ok [n]? ", "n"},
        {"Text s - - - " + tail + " 12345", "", "x\n", tail + " 12345 []? ", "x"},
        {"Text s - - - " + tail + " 123456", "", "x\n", tail + " 123456\n[]? ", "x"},
        {"Text s - - - " + tail + " \t  1234567890", "", "x\n", tail + " \t \n1234567890 []? ",
         "x"},
        {"Text s - - - " + solid, "", "x\n",
         std::string(79, 'x') + "\n" + std::string(79, 'x') + "\n" + std::string(42, 'x') + " []? ",
         "x"},
        {"Text s - - - " + solid.substr(0, 79) + " y", "", "x\n", solid.substr(0, 79) + "\ny []? ",
         "x"},
    };
    for (const auto &row : rows) {
        const Store store = store_of({{"product", "Cat"}, {"s", row.dflt.c_str()}});
        const Set set = loaded(row.line, store);
        write_text("input", row.input);
        ASSERT_NE(std::freopen("input", "r", stdin), nullptr);
        char answer[line_size] = "before";
        testing::internal::CaptureStdout();
        errno = EPERM;
        const int result = quest_ask(set.get(), 0, answer, line_size);
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_EQ(result, row.answer.empty() ? 0 : 1) << row.line;
        EXPECT_EQ(answer, row.answer);
    }
    EXPECT_STREQ(quest_error(), "You must enter an answer");
}

} // namespace
