#include "quest.h"
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

std::string described(const Set &set)
{
    std::string text;
    for (unsigned i = 0; i < quest_count(set.get()); i++) {
        text += std::to_string(quest_type(set.get(), i));
        for (const auto field :
             {quest_setting, quest_control, quest_control_cmp, quest_help, quest_text})
            text += "," + shown(field(set.get(), i));
        text += "|";
    }
    return text;
}

TEST_F(QuestTest, LinesBecomeQuestions)
{
    const Store store = store_of({});
    // A dropped line leaves nothing behind; an escape leaves one character of the old end.
    const Set set = loaded(
        "Text s - - - What  now? \r\nyn\ts c  cmp h y?\n# no\nDir a - - h t\nDirExist a - - h t\n"
        "DirEmpty a - - h t\nFile a - - h t\nFileExist a - - h t\nFileName a - - h t\n"
        "Copy a - - h t\nExist /e/$(x) found\nLoop again 3\nError s h It  failed\n"
        "What s - - h t\nText\nText s\nText s c\nText s c cmp\nExist path\nLoop s\nError s\n"
        "Exist /p\nYN s c cmp h\nWhat t - - - T\nText s - - - one\\ntwo\n"
        "Text s - - - a\\tb\\\\c\\\n[t] x\nText n - - - N\n[T]\nText b - - - B\n[s]\nText c\n",
        store);
    EXPECT_EQ(described(set),
              "1,s,(null),(null),-,What  now?|2,s,c,cmp,h,y?|4,a,(null),(null),h,t|"
              "260,a,(null),(null),h,t|8196,a,(null),(null),h,t|8,a,(null),(null),h,t|"
              "264,a,(null),(null),h,t|16,a,(null),(null),h,t|1024,a,(null),(null),h,t|"
              "512,found,(null),(null),(null),/e/$(x)|4096,again,(null),(null),(null),3|"
              "2048,s,(null),(null),h,It  failed|0,s,(null),(null),h,t|0,t,(null),(null),-,T|"
              "1,s,(null),(null),-,one\ntwoo|1,s,(null),(null),-,a\tb\\c\\c\\|");
    EXPECT_EQ(new_errors(), "Unknown question type 'What'|Missing setting label|Missing control|"
                            "Missing control comparison|Missing Help ID text|Missing Help ID text|"
                            "Missing Help ID text|Missing Help ID text|Missing Help ID text|"
                            "Missing question text|Unknown question type 'What'");
    EXPECT_EQ(quest_load(set.get(), "absent", "s"), 1);
    EXPECT_EQ(quest_load(set.get(), "my.q", "t"), 1);
    EXPECT_EQ(described(set), "1,b,(null),(null),-,B|");
    EXPECT_EQ(quest_load(set.get(), "my.q", "none"), 0);
    EXPECT_EQ(quest_count(set.get()), 0U);
    EXPECT_EQ(quest_load(set.get(), "absent", "s"), 0);
    EXPECT_EQ(new_errors(), "Section 'none' not found|Error opening 'absent', No such file or "
                            "directory");
}

} // namespace
