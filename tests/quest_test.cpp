#include "quest.h"

#include "rows.h"
#include "support.h"

namespace {

using Set = Owned<questions, quest_free>;
using QuestTest = InDirectory;

Set loaded(const std::string &lines, const Store &store)
{
    write_text("my.q", "Text out - - - ?\n[s]\n" + lines);
    Set set(quest_init(store.get()));
    EXPECT_EQ(quest_load(set.get(), "my.q", "S"), 1);
    return set;
}

// All questions of a set as "type sets setting if control is comparison, help id: text".
std::string described(const Set &set)
{
    std::string text;
    const auto add = [&text](const char *before, const char *field) {
        text += field ? std::string(before) + field : "";
    };
    for (unsigned i = 0; i < quest_count(set.get()); i++) {
        text += (i > 0 ? "; " : "") + std::to_string(quest_type(set.get(), i));
        add(" sets ", quest_setting(set.get(), i));
        add(" if ", quest_control(set.get(), i));
        add(" is ", quest_control_cmp(set.get(), i));
        add(", help ", quest_help(set.get(), i));
        add(": ", quest_text(set.get(), i));
    }
    return text;
}

// Each line, or some of them, with the questions that they become, or what is said about them.
TEST_F(QuestTest, LinesBecomeQuestions)
{
    const Store store = store_of({});
    expect_rows(
        {
            "Text s - - - What  now? \r=>1 sets s, help -: What  now?",
            "yn\ts c  cmp h y?=>2 sets s if c is cmp, help h: y?",
            "DIR s - - h t=>4 sets s, help h: t",
            "DirExist s - - h t=>260 sets s, help h: t",
            "DirEmpty s - - h t=>8196 sets s, help h: t",
            "File s - - h t=>8 sets s, help h: t",
            "FileExist s - - h t=>264 sets s, help h: t",
            "FileName s - - h t=>16 sets s, help h: t",
            "Copy s - - h t=>1024 sets s, help h: t",
            "Exist /e/$(x) s=>512 sets s: /e/$(x)",
            "Loop s 3=>4096 sets s: 3",
            "Loop s \f3\v more=>4096 sets s: 3",
            "Error s h It  failed=>2048 sets s, help h: It  failed",
            "Text s - - \v-\f t=>1 sets s, help -: t",
            "Text s c - h t=>1 sets s if c, help h: t",
            "What s - - h t=>0 sets s, help h: t! Unknown question type 'What'",
            "Text=>! Missing setting label",
            "Text s=>! Missing control",
            "Text s c=>! Missing control comparison",
            "Text s c cmp=>! Missing Help ID text",
            "Text s c cmp h=>! Missing question text",
            "Exist path=>! Missing Help ID text",
            "Loop s=>! Missing Help ID text",
            "Error s=>! Missing Help ID text",
            "Error s h=>! Missing question text",
            // An escape leaves one character of the old end.
            "Text s - - - one\\ntwo=>1 sets s, help -: one\ntwoo",
            "Text s - - - a\\tb\\\\c\\=>1 sets s, help -: a\tb\\c\\c\\",
            // A dropped line leaves nothing behind, and a remark says nothing.
            "YN s c cmp h\n# no\nText t - - - T=>1 sets t, help -: T! Missing question text",
            "Loop a 1\nLoop b 2\n[t]\nLoop c 3=>4096 sets a: 1; 4096 sets b: 2",
        },
        [&](const Fields &row) {
            const std::string questions = described(loaded(row[0], store));
            const std::string errors = new_errors();
            return questions + (errors.empty() ? "" : "! ") + errors;
        });
}

TEST_F(QuestTest, ASetHoldsOneSectionAtATime)
{
    const Store store = store_of({});
    const Set set = loaded("Loop s 1\n[T]\nLoop t 2\n[s]\nLoop s 3\n", store);
    EXPECT_EQ(described(set), "4096 sets s: 1");
    EXPECT_EQ(quest_load(set.get(), "absent", "S"), 1) << "what is loaded is not read again";
    EXPECT_EQ(quest_load(set.get(), "my.q", "t"), 1);
    EXPECT_EQ(described(set), "4096 sets t: 2");
    EXPECT_EQ(quest_load(set.get(), "my.q", "none"), 0);
    EXPECT_EQ(quest_count(set.get()), 0U);
    EXPECT_EQ(quest_load(set.get(), "absent", "s"), 0);
    EXPECT_EQ(new_errors(), "Section 'none' not found|Error opening 'absent', No such file or "
                            "directory");
}

} // namespace
