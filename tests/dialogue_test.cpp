#include <filesystem>

#include "program.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

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
    {"{unknown}", "That is not a recognised option, please try again\n"},
    {"{neither}", "Error: You must answer either Yes or No, please try again\n"},
    {"{none}", "Error: You must enter an answer, please try again\n"},
    {"{review}", "Do you want to change your answers [n]? "},
    {"{nothing}", "Copying files[]\nSuccess 0 bytes in 0 files copied\n"},
    {"{wrote}", "Copying files[]\nSuccess 0 bytes in 1 files copied\n"},
    {"{leave}", "\n<Press enter to exit>"}};

// What a run that ends well shows, with names for the screens.
std::string shown(Session session)
{
    EXPECT_EQ(session.status, 0) << session.shown;
    for (const auto &[name, text] : screens)
        replace_all(session.shown, text, name);
    return session.shown;
}

std::string piped(const std::string &input, const std::vector<std::string> &arguments = {})
{
    return shown(run_piped({.arguments = arguments}, input));
}

std::string automated()
{
    return piped("", {"-automate"});
}

// What was answered, by the copy script of an install. The file goes with it.
std::string answers()
{
    const std::string text = read_all("answers");
    fs::remove("answers");
    return text;
}

bool noted(const std::string &line, const std::string &name = "install.log")
{
    return read_all(name).find("] " + line) != std::string::npos;
}

const std::string settings =
    "product Book\nname Ann\nword\nsure\nyes yes\nno no\nkind Full\nfound\n";
const std::string name = "Text name - - - Name\n";
const std::string word = "Text word - - - Word\n";
const std::string sure = "YN sure - - - Sure\n";
const std::string gone = "No such file or directory";

class Dialogue : public InDirectory {
  protected:
    Dialogue()
    {
        fs::copy_file(INSTALLER_PROGRAM, "install");
        write_text("install.dat", settings);
        write_text("install.int", "");
        for (const char *script : {"install.q", "install.cpy"})
            write_text(script, "[install]\n[upgrade]\n[remove]\n");
        write_text("template", "$(name)|$(word)|$(sure)");
    }

    static void ask(const std::string &questions)
    {
        write_text("install.q", "[install]\n" + questions);
        write_text("install.cpy", "[install]\nIni template answers\n");
    }

    struct Case {
        std::string input;
        std::string shown;   // between the first menu and the exit prompt
        std::string answers; // in the end
    };

    // Installs by these questions, once for each input.
    static void expect(const std::string &questions, const std::vector<Case> &cases)
    {
        ask(questions);
        for (const Case &run : cases) {
            EXPECT_EQ(piped(run.input), "{header}{menu}" + run.shown + "{leave}") << run.input;
            EXPECT_EQ(answers(), run.answers.empty() ? "" : run.answers + "\n") << run.input;
        }
    }
};

TEST_F(Dialogue, TheMenuTakesAnEntryByItsNumber)
{
    EXPECT_EQ(piped("7\nx\n0\n-1\n2x\nn\n\n"),
              "{header}{menu}{unknown}{menu}{unknown}{menu}{unknown}{menu}{unknown}{menu}"
              "[Upgrade]\n{review}{nothing}{leave}");
    EXPECT_EQ(piped("\n\n\n"), "{header}{menu}[Install]\n{review}{nothing}{leave}");
    EXPECT_EQ(piped(" \t 3 \r\n\n\n"), "{header}{menu}[Remove]\n{review}Removing files[]\n "
                                       "Success 0 files removed\n{leave}");
    EXPECT_EQ(piped("4\n\n"), "{header}{menu}{leave}");
    EXPECT_EQ(piped("5\n\n"), "{header}{menu}[(NULL)]\n{leave}");
    EXPECT_TRUE(noted("Error: Error loading questions\n"));
    write_text("install.int", "Copy action UPGRADE - -\n");
    EXPECT_EQ(piped("\n\n\n"), "{header}{menu}[Install]\n{review}{nothing}{leave}");
    write_text("install.int", "Copy action upgrade - -\n");
    EXPECT_EQ(piped("9\n\n\n\n"),
              "{header}{menu 2}{unknown}{menu 2}[Upgrade]\n{review}{nothing}{leave}");
    EXPECT_EQ(automated(), "{header}{no menu}[Upgrade]\n{nothing}");
    write_text("install.dat", "product\n");
    Session nameless = run_piped({}, "4\n");
    replace_all(nameless.shown, "NONAME", "Book");
    EXPECT_EQ(shown(nameless), "{header}{menu 2}{leave}");
}

TEST_F(Dialogue, TheCommandLineIsTakenInItsOrder)
{
    using Arguments = std::vector<std::string>;
    const std::string version = "Installer version 1.0d\n";
    const std::string usage = "Usage: install -special <tag>\n";
    const std::string opened = "Info: Log file opened in '" + at("install.log") + "'\n";
    write_text("install.q", "[two]\n");
    const std::vector<std::tuple<Arguments, std::string, std::string>> cases = {
        {{"-version"}, version, opened},
        {{"-automate", "-version", "-special"}, version, "Info: Automated install/upgrade...\n"},
        {{"-special", "tag", "-version"}, version, "Info: Special mode [tag]\n"},
        {{"-special"}, usage, opened},
        {{"-debug", "-automate", "-special"}, usage, "Info: Logging set to debug\n"},
        {{"-special", "1", "-special", "two"}, "{header}[two]\n{review}{leave}", "Info: Special"},
        {{"-special", "-automate"}, "{header}[-automate]\n{leave}", "Error: Error loading q"},
        {{"-x", "-Version", "version", ""}, "{header}{menu}{leave}", opened}};
    for (const auto &[arguments, expected, line] : cases) {
        fs::remove("install.log");
        Session session = run_piped({.arguments = arguments}, "");
        EXPECT_EQ(std::exchange(session.status, 0), expected == usage ? 1 : 0);
        EXPECT_EQ(shown(session), expected);
        EXPECT_TRUE(noted(line)) << line << read_all("install.log");
    }
}

TEST_F(Dialogue, WhatIsMissingEndsTheRunOrTheFlow)
{
    const auto without = [](const std::string &file) {
        fs::rename(file, "away");
        const std::string text = piped("1\n");
        fs::rename("away", file);
        return text;
    };
    const std::string no_init = "Failed to read '" + at("install.int") + "', " + gone + "\n";
    EXPECT_EQ(without("install.dat"), "{leave}");
    EXPECT_TRUE(noted("Error: Error opening '" + at("install.dat") + "' for read, " + gone));
    EXPECT_EQ(without("install.int"), "Error: Failed to load init file '" + at("install.int") +
                                          "', " + no_init + "{leave}");
    EXPECT_TRUE(noted("Error: " + no_init));
    EXPECT_EQ(without("install.q"), "{header}{menu}[Install]\n{leave}");
    EXPECT_TRUE(noted("Error: Error opening '" + at("install.q") + "', " + gone));
    EXPECT_TRUE(noted("Error: Error loading questions\n"));
    EXPECT_EQ(without("install.cpy"), "{header}{menu}[Install]\n{review}{leave}");
    EXPECT_TRUE(noted("Error: Error opening '" + at("install.cpy") + "', " + gone));
    write_text("install.q", "[upgrade]\n");
    EXPECT_EQ(piped("1\n"), "{header}{menu}[Install]\n{leave}");
    EXPECT_TRUE(noted("Error: Section 'install' not found\n"));
    write_text("install.cpy", "[install]\n");
    EXPECT_EQ(piped("2\n"), "{header}{menu}[Upgrade]\n{review}{leave}");
}

TEST_F(Dialogue, TheProgramsOwnNameNamesItsFiles)
{
    for (const std::string file : {"dat", "int", "q", "cpy"})
        fs::rename("install." + file, "setup." + file);
    fs::create_directory("bin");
    fs::rename("install", "bin/setup.sh.old");
    fs::create_symlink("bin/setup.sh.old", "setup");
    fs::create_hard_link("bin/setup.sh.old", "bin/other");
    for (const char *path : {"bin/setup.sh.old", "./setup"})
        EXPECT_EQ(shown(run_piped({.path = at(path)}, "")), "{header}{menu}{leave}");
    EXPECT_EQ(shown(run_piped({.path = "bin/other"}, "")), "{leave}");
    for (const std::string file : {"setup.log", "other.log"})
        EXPECT_TRUE(noted("Info: Log file opened in '" + at(file) + "'\n", file));
}

TEST_F(Dialogue, AutomaticStepsSetSettingsAndDecide)
{
    expect(
        "Copy word - - - name\nCopy word - - - nosuch\nExist $(current_dir)/install.q found\n"
        "Text name found - - Found\nExist $(name).q found\nText sure found - - There\n"
        "Error found - Not $(name)\n",
        {{"\nsetup\n", "[Install]\nFound [Ann]? Error: Not $(name)\n", ""},
         {"\ninstall\ns\n", "[Install]\nFound [Ann]? There []? {review}{wrote}", "install|Ann|s"}});
    // Only an upgrade fills in the text of an error.
    write_text("install.q", "[upgrade]\nError no - Not $(name)$(nosuch).\n[remove]\n" + word +
                                "Error word - Not $(name).\n[tag]\nError no - Not $(name).\n");
    EXPECT_EQ(piped("2\n"), "{header}{menu}[Upgrade]\nError: Not Ann.\n{leave}");
    EXPECT_EQ(piped("3\nmaybe\n"), "{header}{menu}[Remove]\nWord []? {review}{leave}");
    EXPECT_EQ(piped("3\nOFF\n"), "{header}{menu}[Remove]\nWord []? Error: Not $(name).\n{leave}");
    EXPECT_EQ(piped("", {"-special", "tag"}), "{header}[tag]\nError: Not $(name).\n{leave}");
}

TEST_F(Dialogue, LoopsGoBackForwardAndToTheStart)
{
    for (const std::string target : {"0", "-7", "none"})
        expect(name + word + "Exist $(name) found\nLoop found " + target + "\n",
               {{"\nx\ny\ninstall.q\n\n\n",
                 "[Install]\nName [Ann]? Word []? Name [x]? Word [y]? {review}{wrote}",
                 "install.q|y|$(sure)"}});
    expect("Loop no 2\n" + name + word + "Loop yes 0\nLoop nosuch 0\nLoop no 99\n" + sure,
           {{"\ny\n\n", "[Install]\nWord []? {review}{wrote}", "Ann|y|$(sure)"}});
}

TEST_F(Dialogue, GatesLetQuestionsBeAsked)
{
    expect("Text name kind Full - literal\nText name kind full - wrong case\n"
           "Text name yes - - true\nText name no - - false\nText name kind - - neither\n"
           "Text name yes yes - setting\nText name yes no - unequal\nText name nosuch x - unset\n"
           "Text name - x - none\nText name kind kind - itself\n",
           {{"\n",
             "[Install]\nliteral [Ann]? true [Ann]? setting [Ann]? unset [Ann]? none [Ann]? "
             "itself [Ann]? {review}{wrote}",
             "Ann|$(word)|$(sure)"}});
}

TEST_F(Dialogue, OneCanStepBackLeaveAndReview)
{
    // A step back meets the automatic line before the question, which leads to it again.
    expect(name + "Exist $(name) found\nText word found - - File\n" + sure,
           {{"\nb\nB\n\nmaybe\nn\n\n",
             "[Install]\nName [Ann]? Name [Ann]? Name [Ann]? Sure []? {neither}Sure []? {review}"
             "{wrote}",
             "Ann|$(word)|false"},
            {"\ninstall.q\nb\nx\nb\nz\ny\nyes\n\nbq\n\n\n",
             "[Install]\nName [Ann]? File []? File []? Sure []? File [x]? Sure []? {review}"
             "Name [install.q]? File [z]? Sure [y]? {review}{wrote}",
             "install.q|bq|true"},
            {"\nBob\nQ\n\nq\n4\n",
             "[Install]\nName [Ann]? Sure []? {menu}[Install]\nName [Bob]? {menu}", ""}});
}

TEST_F(Dialogue, ARejectedAnswerIsAskedForAgain)
{
    const std::string error = "' must exist, " + gone + ", please try again\n";
    expect("DirExist name - - - Dir\n" + sure + word,
           {{"\n\nnone/\n.\nmaybe\n1\n  \n  w \t\n\n\n",
             "[Install]\nDir [Ann]? Error: Directory 'Ann" + error +
                 "Dir [Ann]? Error: Directory "
                 "'none" +
                 error +
                 "Dir [Ann]? Sure []? {neither}Sure []? Word []? {none}Word []? "
                 "{review}{wrote}",
             ".|  w|true"}});
    EXPECT_EQ(automated(), "{header}{no menu}[Install]\nError: Directory 'Ann" + error);
}

TEST_F(Dialogue, WithoutInputDefaultsAreJudged)
{
    write_text("blurb.txt", "Bye.\n");
    // Where there is no default the answer before counts.
    ask(name + word);
    EXPECT_EQ(automated(), "{header}{no menu}[Install]\n{wrote}\nBye.\n");
    EXPECT_EQ(answers(), "Ann|Ann|$(sure)\n");
    ask(name + sure);
    EXPECT_EQ(automated(), "{header}{no menu}[Install]\n{neither}\nBye.\n");
    write_text("install.dat", "product Book\nname Q\n");
    EXPECT_EQ(automated(), "{header}{no menu}[Install]\n");
}

TEST_F(Dialogue, WhatGoesRoundForEverIsGivenUp)
{
    const auto given_up = [](const std::string &text) {
        EXPECT_TRUE(noted("Error: More than 1000 steps back")) << text;
        fs::remove("install.log");
        return text;
    };
    ask(name + "Loop no 0\n");
    EXPECT_EQ(given_up(automated()), "{header}{no menu}[Install]\n");
    // What a person is asked is no idle round, until nobody is there any more.
    const std::string asked = given_up(piped("\nx\ny\nz"));
    EXPECT_NE(asked.find("\nName [Ann]? Name [x]? Name [y]? Name [z]? "), std::string::npos);
    ask(name + "Loop no 1\n");
    EXPECT_EQ(given_up(piped("\nx\n\n")), "{header}{menu}[Install]\nName [Ann]? {leave}");
    write_text("install.dat", "product Book\nname b\n");
    EXPECT_EQ(given_up(automated()), "{header}{no menu}[Install]\n");
}

TEST_F(Dialogue, TheEndOfInputEndsTheRunWhereverItComes)
{
    const std::string first = "[Install]\nName [Ann]? ";
    const std::string all = first + "Word []? Sure []? ";
    expect(name + word + sure,
           {{"", "", ""},
            {"7", "{unknown}{menu}", ""},
            {"1", all + "{neither}", ""},
            {"1\nb", first, ""},
            {"1\nb\n", first + "Name [Ann]? ", ""},
            {"1\nq", first + "{menu}", ""},
            {"1\n\nw\nmaybe", all + "{neither}", ""},
            {"1\n\nw\nmaybe\n", all + "{neither}Sure []? {neither}", ""},
            {"1\n\n0", all + "{review}{wrote}", "Ann|0|false"},
            {"1\n\nw\nyes\nno", all + "{review}{wrote}", "Ann|w|true"},
            {"1\n\nw\nyes\nyes\n1", all + "{review}Name [Ann]? Word [w]? Sure [y]? {review}{wrote}",
             "1|1|true"},
            {"1\n\nw\ny\nn\nend", all + "{review}{wrote}", "Ann|w|true"}});
    expect(word, {{"1\n", "[Install]\nWord []? {none}", ""}});
    // However far a longer dialogue gets, it ends.
    ask(name + "Loop no 3\n" + word + sure + "Exist $(name) found\nLoop found 0\n");
    const std::string whole = "9\n1\nq\n\nb\nx\nb\nz\nno\ninstall\n\nyes\nb\n\n\n";
    for (size_t length = 0; length <= whole.size(); length++)
        EXPECT_TRUE(piped(whole.substr(0, length)).ends_with("{leave}"));
}

TEST_F(Dialogue, TheOutcomeIsCountedAndNamed)
{
    write_text("from/a", std::string(1000, 'a'));
    write_text("from/sub/b", std::string(199, 'b'));
    write_text("from/sub/c.bak", "c");
    write_text("blurb.txt", "  $(name) in $(word)\n\n\tthe end$(nosuch)  \n# $(product)");
    write_text("install.q", "[install]\n[upgrade]\n[remove]\n[tag]\n[questions]\n");
    write_text("install.cpy", R"([install]
MkDir to/deep/
CopyDir from *.bak to/deep
CopyFile from/a - ./to no
WFile to/made product
[upgrade]
CopyFile from/a - ./to
Error no Not in  $(name)
MkDir never
[remove]
RmFile nosuch -
RmDir to/deep -
Error no Never seen
RmDir from *.bak
MkDir after
[tag]
MkDir after/a
RmDir after - nosuch
)");
    // Directories count, but have no bytes; what a false setting keeps from running is no failure.
    const std::string blurb = "\nAnn in \n\nthe end\n# Book\n";
    EXPECT_EQ(automated(), "{header}{no menu}[Install]\nCopying files[......]\nSuccess 1199 bytes "
                           "in 6 files copied\n" +
                               blurb);
    const std::vector<std::string> tree = {"deep/",
                                           "deep/from/",
                                           "deep/from/a=" + std::string(1000, 'a'),
                                           "deep/from/sub/",
                                           "deep/from/sub/b=" + std::string(199, 'b'),
                                           "made=Book"};
    EXPECT_EQ(tree_of("to"), tree);
    EXPECT_EQ(piped("2\n"),
              "{header}{menu}[Upgrade]\n{review}Copying files[.]\nFailed, Not in  Ann{leave}");
    EXPECT_TRUE(noted("Info: Stop on fail set, stopping...\n") && !fs::exists("never"));
    // The others go on. Which of a directory's entries comes first is not known.
    std::string removed = piped("3\n");
    replace_all(removed, "\nError: Directory not empty\n", "!");
    std::erase(removed, '.');
    EXPECT_EQ(removed, "{header}{menu}[Remove]\n{review}Removing files[!!]\n Success 8 files "
                       "removed\n{leave}");
    EXPECT_TRUE(noted("Info: Stop on fail NOT set, continuing...\n"));
    EXPECT_TRUE(fs::exists("after") && fs::exists("from/sub/c.bak") && !fs::exists("to/deep"));
    EXPECT_EQ(piped("", {"-special", "TAG"}),
              "{header}[TAG]\n{review}Executing[....]\n Success 3 files done.\n{leave}");
    EXPECT_EQ(piped("", {"-special", "questions"}), "{header}[questions]\n{review}{leave}");
    // The blurb follows a failed install too, on the line of the reason.
    write_text("install.cpy", "[install]\nMkDir blurb.txt/x\nMkDir after\n");
    EXPECT_EQ(automated(), "{header}{no menu}[Install]\nCopying files[\nError: Not a directory\n]\n"
                           "Failed, " +
                               blurb);
}

TEST_F(Dialogue, APlaceWithoutWriteAccessIsNoHindrance)
{
    fs::create_directory("install.log");
    EXPECT_EQ(automated(), "{header}{no menu}[Install]\n{nothing}");
    fs::remove("install.log");
    ask(word);
    fs::permissions(".", fs::perms(0555));
    EXPECT_EQ(shown(run_piped({.as_nobody = true}, "1\nx\n")),
              "{header}{menu}[Install]\nWord []? {review}Copying files[]\nFailed, {leave}");
    EXPECT_FALSE(fs::exists("install.log"));
}

TEST_F(Dialogue, OnATerminalEachPromptWaitsForItsAnswer)
{
    ask(name + word);
    const std::string much(2000, 'x');
    const Answers typed = {{"do[1]? ", "1"},    {"Ann]? ", "Bob"}, {"Word []? ", "q"},
                           {"do[1]? ", "1"},    {"Bob]? ", "b"},   {"Bob]? ", ""},
                           {"Word []? ", much}, {"[n]? ", "no"},   {"exit>", "bye"}};
    EXPECT_EQ(shown(run_on_terminal({}, typed)),
              "{header}{menu}1\n[Install]\nName [Ann]? Bob\nWord []? q\n{menu}1\n[Install]\nName "
              "[Bob]? b\nName [Bob]? \nWord []? " +
                  much + "\n{review}no\n{wrote}{leave}bye\n");
    EXPECT_EQ(answers(), "Bob|" + much.substr(0, 999) + "|$(sure)\n");
}

// One who ends the input has left for good, even where the terminal could be read again.
TEST_F(Dialogue, OnATerminalTheEndOfInputIsFinal)
{
    ask(word);
    const Answers all = {{"do[1]? ", "1"}, {"Word []? ", "w"}, {"[n]? ", "n"}, {"exit>", ""}};
    const std::string begun = "{header}{menu}1\n[Install]\nWord []? ";
    const std::vector<std::string> expected = {"{header}{menu}{leave}", begun + "{none}{leave}",
                                               begun + "w\n{review}{wrote}{leave}",
                                               begun + "w\n{review}n\n{wrote}{leave}"};
    for (size_t last = 0; last < all.size(); last++) {
        Answers typed(all.begin(), all.begin() + static_cast<long>(last) + 1);
        typed.back().second = end_of_input;
        EXPECT_EQ(shown(run_on_terminal({}, typed)), expected[last]);
    }
}

} // namespace
