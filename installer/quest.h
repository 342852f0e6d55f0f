// The questions: one section of the question file, loaded into a set; asking one of them, judging
// the answer by its type and storing it as a setting.
#pragma once

#include <cstdint>

struct Ini;

enum QType : unsigned {
    QText = 1,
    QYN = 2,
    QDir = 4,
    QFile = 8,
    QFileName = 16,
    QExist = 256, // must exist
    QDirExist = 260,
    QFileExist = 264,
    QXExist = 512,
    QCopy = 1024,
    QError = 2048,
    QLoop = 4096,
    QEmpty = 8192, // must be empty
    QDirEmpty = 8196,
};

// One line of the section; all texts are owned.
struct quest {
    char *text;        // the question; the path, the source setting or the target of a step
    char *setting;     // receives the answer or the result
    char *control;     // the setting that decides whether it is asked; null: always
    char *control_cmp; // a setting or a literal to compare that with; null: none
    char *help_id;
    QType type;
};
using pQuest = quest *;

struct questions {
    std::uint32_t count;
    char *last_error; // not used: the last error is kept for all sets, see quest_error
    char *section;    // owned: what is loaded; null: nothing
    quest *list;      // `count` complete questions
    Ini *ini;         // where answers go; not owned; may be null
};
using pQuestions = questions *;

// The fields that follow a type word, in this order.
enum question_field : unsigned {
    path_first = 1, // a path and then the setting; otherwise the setting comes first
    has_control = 2,
    has_help_id = 4,
    has_target = 8, // of a jump
    has_text = 16,  // the rest of the line
};

// The type words by number, null behind the last; the type that a word stands for and the sum of
// its fields, 0 behind the last.
const char *quest_word(unsigned number);
QType quest_word_type(unsigned number);
unsigned quest_word_fields(unsigned number);

// Takes a line of a section apart, which changes it, and fills in an empty question; false when a
// field is missing. What is wrong with the line is logged. The texts go with quest_release.
bool quest_parse(char *line, quest &question);

// Releases the texts of a question, which is empty afterwards.
void quest_release(quest &question);

// A new, empty set bound to a store.
[[nodiscard]] pQuestions quest_init(Ini *ini);

// Loads a section, in place of another one; the section that is loaded already is not read again.
// 1, or 0 for nulls, a file that cannot be read and a section that is not there. Faulty lines are
// logged and dropped.
int quest_load(pQuestions set, const char *file, const char *section);

// The number of questions, and the fields of one: null or 0 for a null set or an invalid index.
std::uint32_t quest_count(const questions *set);
const char *quest_text(const questions *set, std::uint32_t index);
const char *quest_help(const questions *set, std::uint32_t index);
const char *quest_setting(const questions *set, std::uint32_t index);
const char *quest_control(const questions *set, std::uint32_t index);
const char *quest_control_cmp(const questions *set, std::uint32_t index);
QType quest_type(const questions *set, std::uint32_t index);

// Whether the controlling setting lets a question be asked now; true without one, and when it has
// no value.
bool quest_is_asked(const questions *set, std::uint32_t index);

// Copies the question's default, the value of its setting ("y" or "n" for a yes/no question), into
// the buffer and returns it; null, with the buffer untouched, when there is none.
char *quest_default(const questions *set, std::uint32_t index, char *buffer, int size);

// Shows the question with its default and reads a line into the buffer; an empty one takes the
// default. At the end of input the buffer is judged as it was. 1, or 0 with quest_error set, also
// when reading failed.
int quest_ask(const questions *set, std::uint32_t index, char *answer, int size);

// Judges an answer by the question's type and stores it. 1, or 0 with quest_error set and nothing
// stored. The answer may be changed in place.
int quest_answer(const questions *set, std::uint32_t index, char *answer);

// The last error, "" when there was none; set it: it is logged, and the system's reason is added
// when errno tells one.
const char *quest_error();
[[gnu::format(printf, 1, 2)]] void quest_seterror(const char *format, ...);

// Releases the questions of a set; the set itself, clearing the caller's pointer.
void quest_clear(pQuestions set);
void quest_free(pQuestions *set);
