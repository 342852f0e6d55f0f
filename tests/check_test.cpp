// The checker's rules, each by its own page: the wrong product has the finding on exactly that
// line, the right one has none, and the installer itself shows what the finding claims.
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <sstream>

#include <unistd.h>

#include "check.h"
#include "rule_pages.h"
#include "support.h"

namespace {

using Files = std::map<std::string, std::string>;

struct Page {
    Files with, wrong, right;
    std::vector<std::string> without, found, also, run, shows;
    bool is_for_root = false;
};

Page parse_page(const char *text)
{
    Page page;
    const std::map<std::string, Files Page::*> files = {
        {"with", &Page::with}, {"wrong", &Page::wrong}, {"right", &Page::right}};
    const std::map<std::string, std::vector<std::string> Page::*> lists = {
        {"without", &Page::without}, {"found", &Page::found}, {"also", &Page::also},
        {"run", &Page::run},         {"shows", &Page::shows},
    };
    std::istringstream lines(text);
    std::string *file = nullptr;
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(": ");
        const std::string word = line.substr(0, colon);
        if (file && line.starts_with("    "))
            *file += line.substr(4) + "\n";
        else if (colon == std::string::npos)
            file = nullptr;
        else if (files.contains(word))
            file = &(page.*files.at(word))[line.substr(colon + 2)];
        else if (lists.contains(word))
            (page.*lists.at(word)).push_back(line.substr(colon + 2));
        else if (word == "as")
            page.is_for_root = true;
    }
    return page;
}

// Bytes that cannot stand in a page are written as escapes: \r, \xEF, and \l for a thousand
// letters.
std::string unescaped(const std::string &text)
{
    std::string result;
    for (size_t at = 0; at < text.size(); at++) {
        if (text.compare(at, 2, "\\r") == 0) {
            result += '\r';
            at++;
        } else if (text.compare(at, 2, "\\l") == 0) {
            result += std::string(1000, 'l');
            at++;
        } else if (text.compare(at, 2, "\\x") == 0) {
            result += static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16));
            at += 3;
        } else {
            result += text[at];
        }
    }
    return result;
}

void make_product(const Page &page, const Files &own)
{
    Files files = {{"install.dat", "product  Test\n"},
                   {"install.int", ""},
                   {"install.q", "[install]\n"},
                   {"install.cpy", "[install]\n"}};
    for (const Files *more : {&page.with, &own})
        for (const auto &[name, text] : *more)
            files[name] = unescaped(text);
    if (&own == &page.wrong)
        for (const std::string &name : page.without)
            files.erase(name);
    for (const auto &[name, text] : files)
        if (text.starts_with("-> "))
            std::filesystem::create_symlink(text.substr(3, text.size() - 4), name);
        else
            write_text(name, text);
    std::filesystem::copy_file(INSTALLER_PROGRAM, "install");
}

std::multiset<std::string> findings_in_folder()
{
    Product product;
    std::string problem;
    EXPECT_TRUE(load_product(".", "install", product, problem)) << problem;
    std::multiset<std::string> findings;
    size_t accepted = 0;
    for (const Finding &finding : check_product(product, accepted))
        findings.insert(finding.file + ":" + std::to_string(finding.line) + " " + finding.rule);
    return findings;
}

int shell(const std::string &command)
{
    return std::system(("{ " + command + "\n} >>../screen 2>&1 </dev/null").c_str());
}

class RuleTest : public InDirectory, public ::testing::WithParamInterface<std::string> {
  protected:
    // Makes one of the page's products, runs it, and looks whether it shows what is claimed.
    std::vector<bool> consequences(const Page &page, const Files &own)
    {
        std::filesystem::create_directory(at("product"));
        std::filesystem::current_path(at("product"));
        ::setenv("SCREEN", at("screen").c_str(), 1);
        make_product(page, own);
        findings = findings_in_folder();
        for (const std::string &command : page.run)
            shell("umask 022; " + command);
        std::vector<bool> shown;
        for (const std::string &command : page.shows)
            shown.push_back(shell(command) == 0);
        shell("chmod -R u+rwX .");
        std::filesystem::current_path(directory);
        std::filesystem::remove_all(at("product"));
        std::filesystem::remove(at("screen"));
        return shown;
    }

    std::multiset<std::string> findings;
};

TEST_P(RuleTest, IsFoundWhereItIsAndShownByARun)
{
    const char *text = rule_page(GetParam());
    ASSERT_TRUE(text);
    const Page page = parse_page(text);
    if (page.is_for_root && ::geteuid() != 0)
        GTEST_SKIP() << "only root can do this";
    ASSERT_FALSE(page.found.empty() || page.run.empty() || page.shows.empty());
    std::multiset<std::string> expected(page.also.begin(), page.also.end());
    for (const std::string &place : page.found)
        expected.insert(place + " " + GetParam());

    const std::vector<bool> goes_wrong = consequences(page, page.wrong);
    EXPECT_EQ(findings, expected);
    const std::vector<bool> goes_right = consequences(page, page.right);
    EXPECT_EQ(findings, std::multiset<std::string>());
    for (size_t claim = 0; claim < page.shows.size(); claim++) {
        EXPECT_TRUE(goes_wrong[claim]) << "not shown by the wrong one: " << page.shows[claim];
        EXPECT_FALSE(goes_right[claim]) << "shown by the right one, too: " << page.shows[claim];
    }
}

std::vector<std::string> all_rules()
{
    std::vector<std::string> words;
    for (unsigned number = 0; const Rule *rule = check_rule(number); number++)
        words.emplace_back(rule->word);
    return words;
}

std::string case_name(const ::testing::TestParamInfo<std::string> &info)
{
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Check, RuleTest, ::testing::ValuesIn(all_rules()), case_name);

TEST(CheckTest, EveryPageHasItsRule)
{
    std::multiset<std::string> pages;
    for (const RulePage *page = rule_pages; page->word; page++)
        pages.insert(page->word);
    const auto rules = all_rules();
    EXPECT_EQ(pages, std::multiset<std::string>(rules.begin(), rules.end()));
}

TEST(CheckTest, TheExamplesHaveNoFindings)
{
    for (const auto &example : std::filesystem::directory_iterator(INSTALLER_EXAMPLES)) {
        std::filesystem::current_path(example.path());
        EXPECT_EQ(findings_in_folder(), std::multiset<std::string>()) << example.path();
    }
}

class LargeProductTest : public InDirectory {};

// Each line compared with every other would take half a minute without optimization.
TEST_F(LargeProductTest, IsCheckedInNoTime)
{
    std::string data = "product  Test\n", steps = "[install]\n", commands = "[install]\n";
    for (int number = 100; number < 1350; number++) {
        const std::string own = std::to_string(number),
                          next = std::to_string(number < 1349 ? number + 1 : 100);
        data += "s" + own + "  $(s" + next + ")\n";
        steps += "Exist  f" + own + "  q" + own + "\n";
        commands += "MkDir  d" + own + "/e\nCopyFile  install.*  -  d" + own + "/e\n";
    }
    write_text("install.dat", data);
    write_text("install.int", "");
    write_text("install.q", steps);
    write_text("install.cpy", commands);
    const std::clock_t begin = std::clock();
    std::map<std::string, int> counts;
    for (const std::string &finding : findings_in_folder())
        counts[finding.substr(finding.find(' ') + 1)]++;
    EXPECT_EQ(counts, (std::map<std::string, int>{{"looked-for-nowhere", 1250},
                                                  {"result-unread", 1250},
                                                  {"unused-setting", 1250}}));
    EXPECT_LT(std::clock() - begin, 10 * CLOCKS_PER_SEC);
}

class AcceptanceTest : public InDirectory {
  protected:
    // What is found when a comment stands before a wrong line of the data file.
    std::string found_below(const std::string &comment)
    {
        write_text("install.dat", "product  Test\n" + comment + "\nhost  mine\n");
        write_text("install.int", "");
        std::vector<std::string> found;
        for (const std::string &finding : findings_in_folder())
            found.push_back(finding);
        return joined(found);
    }
};

TEST_F(AcceptanceTest, NamesTheRuleAndSaysWhy)
{
    EXPECT_EQ(found_below("# check: built-in: shown to readers only"), "");
    EXPECT_EQ(found_below("# check: built-in"), "install.dat:2 acceptance|install.dat:3 built-in");
    EXPECT_EQ(found_below("# check: builtin: because"),
              "install.dat:2 acceptance|install.dat:3 built-in");
    EXPECT_EQ(found_below("# check: braces: because"),
              "install.dat:2 acceptance|install.dat:3 built-in");
    EXPECT_EQ(found_below("# check: built-in: for the reader\n# and more words"), "");
}

} // namespace
