#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <unistd.h>

#include "program.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

// The screens that nearly every run shows, and the names they go by in what is expected.
const std::string entries = "\n1. Install Book\n2. Upgrade Book\n3. Remove Book\n4. Exit\n";
const std::vector<std::pair<std::string, std::string>> screens = {
    {"{header}", R"(======================================================
             Welcome to the Book installer
 You will be asked a series of questions, for each a
 default answer will be provided (thus), to accept the
 default simply press <enter>, otherwise enter a new
 answer and press <enter>
======================================================
)"},
    {"{menu}", entries + "\nWhat would you like to do[1]? "},
    {"{menu 2}", entries + "\nWhat would you like to do[2]? "},
    {"{no menu}", entries + "\n"},
    {"{leave}", "\n<Press enter to exit>"}};

std::string replaced(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// What a run showed, with names for the screens and this directory, and the answers it wrote.
std::string shown(const Session &session, int status = 0)
{
    EXPECT_EQ(session.status, status) << session.shown;
    std::string text = replaced(session.shown, fs::current_path(), "{here}");
    for (const auto &[name, screen] : screens)
        text = replaced(text, screen, name);
    text += read_all("answers");
    fs::remove("answers");
    return text + "\n";
}

bool noted(const std::string &line, const std::string &log = "install.log")
{
    const std::string text = replaced(read_all(log), fs::current_path(), "{here}");
    return text.find("] " + line + "\n") != std::string::npos;
}

void ask(const std::string &questions)
{
    write_text("template", "$(name)|$(word)|$(sure)");
    write_text("install.q", "[install]\n" + questions);
    write_text("install.cpy", "[install]\nIni template answers\n");
}

class Dialogue : public InDirectory {
  protected:
    Dialogue()
    {
        fs::copy_file(INSTALLER_PROGRAM, "install");
        write_text("install.dat", "product Book\nname Ann\nword\nsure\nyes yes\nno no\nkind Full\n"
                                  "found\n");
        write_text("install.int", "");
        for (const char *script : {"install.q", "install.cpy"})
            write_text(script, "[install]\n[upgrade]\n[remove]\n[tag]\n");
    }
};

// --- Dialogues that are written down -----------------------------------------------------------

void only_root()
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
}

// What the kit tells in the end, and its status; not what the program shows that it runs.
std::string told_by_kit(const std::vector<std::string> &words, const std::string &input)
{
    const char *to = words.at(0) == "run" ? "\"$0\" \"$@\" 2>&1 >/dev/null" : "\"$0\" \"$@\" 2>&1";
    std::vector<std::string> arguments = {"-c", to, INSTALLER_KIT};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const Session session =
        run_piped({.path = "/bin/sh", .arguments = arguments, .ours = false}, input);
    return replaced(session.shown, fs::current_path(), "{here}") + "status " +
           std::to_string(session.status) + "\n";
}

std::vector<std::string> words_of(const std::string &text)
{
    std::istringstream line(text);
    return {std::istream_iterator<std::string>(line), {}};
}

// Each line is a command line and what the kit says to it, and nothing here is changed by it.
void expect_refusals(const std::string &status, const std::string &rows)
{
    const std::vector<std::string> before = tree_of(".");
    std::istringstream lines(rows);
    for (std::string row; std::getline(lines, row);) {
        const size_t arrow = row.find("=> ");
        EXPECT_EQ(told_by_kit(words_of(row.substr(0, arrow)), ""),
                  row.substr(arrow + 3) + "\nstatus " + status + "\n")
            << row;
    }
    EXPECT_TRUE(tree_of(".") == before);
}

// Does what a section of a dialogue's file says; its text is what stands below its title.
void follow(const std::string &title, std::string text)
{
    static std::string last;
    std::vector<std::string> words = words_of(title);
    const std::string verb = words.at(0);
    words.erase(words.begin());
    if (text.ends_with("~\n"))
        text.resize(text.size() - 2);
    if (verb == "file")
        write_text(words.at(0), text);
    else if (verb == "remove")
        fs::remove(words.at(0));
    else if (verb == "questions")
        ask(text);
    else if (verb == "run" || verb == "fails")
        last = shown(run_piped({.arguments = words}, text), verb == "run" ? 0 : 1);
    else if (verb == "shell")
        last = shown(run_piped(
            {.path = "/bin/sh", .arguments = {"-c", title.substr(6)}, .ours = false}, text));
    else if (verb == "nobody")
        last = shown(run_piped({.arguments = words, .as_nobody = true}, text));
    else if (verb == "root")
        only_root();
    else if (verb == "kit")
        last = told_by_kit(words, text);
    else if (verb == "refused")
        expect_refusals(words.at(0), text);
    else if (verb == "shows")
        EXPECT_EQ(last, text);
    else if (verb == "logged")
        EXPECT_TRUE(noted(text.substr(0, text.size() - 1))) << text << read_all("install.log");
    else if (verb == "tree")
        EXPECT_EQ(joined(tree_of(words.at(0))) + "\n", text);
    else
        FAIL() << "unknown: " << title;
}

// Each line of a file that begins with "--- " begins a section, and "=== " is a remark.
class WrittenDown : public Dialogue, public ::testing::WithParamInterface<const char *> {};

TEST_P(WrittenDown, GoesWordForWord)
{
    std::istringstream lines(read_all(INSTALLER_DIALOGUES "/" + std::string(GetParam()) + ".txt"));
    std::string title;
    std::string text;
    int number = 0;
    for (std::string line; std::getline(lines, line); number++) {
        const bool remark = line.starts_with("=== ");
        if (!remark && !line.starts_with("--- ")) {
            text += line + "\n";
            continue;
        }
        SCOPED_TRACE("section that ends above line " + std::to_string(number + 1));
        if (!title.empty())
            follow(title, text);
        if (IsSkipped())
            return;
        title = remark ? "" : line.substr(4);
        text.clear();
    }
    ASSERT_GT(number, 0);
    follow(title, text);
}

std::string chosen_name(const ::testing::TestParamInfo<const char *> &chosen)
{
    return chosen.param;
}

INSTANTIATE_TEST_SUITE_P(Dialogue, WrittenDown,
                         ::testing::Values("menu", "options", "missing", "steps", "answers", "end",
                                           "outcome", "streams", "prompts", "commands", "trees",
                                           "harm", "results", "owners"),
                         chosen_name);
INSTANTIATE_TEST_SUITE_P(Kit, WrittenDown,
                         ::testing::Values("account", "repeat", "refused", "follow", "check"),
                         chosen_name);

// --- Dialogues that need more than text ---------------------------------------------------------

TEST_F(Dialogue, AByteOfNothingEndsItsLineAlone)
{
    ask("Text word - - - Word\nText name - - - Name\n");
    const std::string typed("1\nw\0x\nBob\n\n", 11);
    EXPECT_TRUE(shown(run_piped({}, typed)).ends_with("copied\n{leave}Bob|w|$(sure)\n\n"));
}

TEST_F(Dialogue, TheProgramsOwnNameNamesItsFiles)
{
    for (const std::string file : {"dat", "int", "q", "cpy"})
        fs::rename("install." + file, "setup." + file);
    fs::create_directory("bin");
    fs::rename("install", "bin/setup.sh.old");
    fs::create_symlink("bin/setup.sh.old", "setup");
    for (const char *path : {"bin/setup.sh.old", "./setup"})
        EXPECT_EQ(shown(run_piped({.path = at(path)}, "4\n")), "{header}{menu}{leave}\n");
    EXPECT_TRUE(noted("Info: Log file opened in '{here}/setup.log'", "setup.log"));
}

TEST_F(Dialogue, APlaceWithoutWriteAccessIsNoHindrance)
{
    fs::create_directory("install.log");
    EXPECT_EQ(shown(run_piped({}, "4\n")), "{header}{menu}{leave}\n");
    fs::remove("install.log");
    ask("Text word - - - Word\n");
    fs::permissions(".", fs::perms(0555));
    EXPECT_EQ(shown(run_piped({.as_nobody = true}, "1\nx\n")),
              "{header}{menu}[Install]\nWord []? Do you want to change your answers [n]? Copying "
              "files[]\nFailed, {leave}\n");
    EXPECT_FALSE(fs::exists("install.log"));
}

TEST_F(Dialogue, OnATerminalEachPromptWaitsForItsAnswer)
{
    ask("Text name - - - Name\nText word - - - Word\n");
    const std::string much(2000, 'x');
    const Answers typed = answers_of("do[1]? =>1|Ann]? =>Bob|Word []? =>q|do[1]? =>1|Bob]? =>b|"
                                     "Bob]? |Word []? =>" +
                                     much + "|[n]? =>no|exit>=>bye");
    EXPECT_EQ(shown(run_on_terminal({}, typed)),
              "{header}{menu}1\n[Install]\nName [Ann]? Bob\nWord []? q\n{menu}1\n[Install]\n"
              "Name [Bob]? b\nName [Bob]? \nWord []? " +
                  much +
                  "\nDo you want to change your answers [n]? no\nCopying files[]\n"
                  "Success 0 bytes in 1 files copied\n{leave}bye\nBob|" +
                  much.substr(0, 999) + "|$(sure)\n\n");
}

TEST_F(Dialogue, AScreenThatDoesNotWaitIsWaitedFor)
{
    ask("Text word - - - Word\n");
    const std::string line(900, 'x');
    for (int number = 0; number < 500; number++)
        std::ofstream("blurb.txt", std::ios::app) << line << '\n';
    const Session session = run_on_socket({}, answers_of("do[1]? =>1|Word []? =>w|[n]? |exit>"));
    const std::string text = shown(session);
    EXPECT_TRUE(text.starts_with("{header}{menu}[Install]\nWord []? Do you want")) << text;
    EXPECT_TRUE(text.ends_with(line + "\n{leave}Ann|w|$(sure)\n\n"));
    EXPECT_EQ(std::ranges::count(text, 'x'), 500 * 900);
}

// One who ends the input has left for good, even where the terminal could be read again.
TEST_F(Dialogue, OnATerminalTheEndOfInputIsFinal)
{
    ask("Text word - - - Word\n");
    Answers typed = answers_of("do[1]? =>1|Word []? =>w|[n]? |exit>");
    const std::string done =
        "Copying files[]\nSuccess 0 bytes in 1 files copied\n{leave}Ann|w|$(sure)\n\n";
    for (const std::string &ending :
         {"w\nDo you want to change your answers [n]? \n" + done,
          "w\nDo you want to change your answers [n]? " + done,
          std::string("Word []? Error: You must enter an answer, please try again\n{leave}\n"),
          std::string("{header}{menu}{leave}\n")}) {
        typed.back().second = end_of_input;
        const std::string text = shown(run_on_terminal({}, typed));
        EXPECT_TRUE(text.ends_with(ending)) << text;
        typed.pop_back();
    }
}

} // namespace
