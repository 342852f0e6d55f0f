#include "quest.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "file.h"
#include "ini.h"
#include "lib.h"
#include "log.h"

namespace {

LastError last_question_error;

constexpr std::uint32_t more_questions = 5;

// --- Loading ---------------------------------------------------------------------------------

struct type_word {
    const char *word;
    QType type;
    unsigned fields;
};

constexpr unsigned asked_fields = has_control | has_help_id | has_text;

constexpr type_word type_words[] = {
    {"Text", QText, asked_fields},
    {"YN", QYN, asked_fields},
    {"Dir", QDir, asked_fields},
    {"DirExist", QDirExist, asked_fields},
    {"DirEmpty", QDirEmpty, asked_fields},
    {"File", QFile, asked_fields},
    {"FileExist", QFileExist, asked_fields},
    {"FileName", QFileName, asked_fields},
    {"Copy", QCopy, asked_fields},
    {"Exist", QXExist, path_first},
    {"Error", QError, has_help_id | has_text},
    {"Loop", QLoop, has_target},
};

// Converts "\n", "\t" and other escapes in place. The text is not ended anew: for each escape one
// character of the old end stays behind the converted text, which question files count on.
void convert_escapes(char *text)
{
    for (char *to = text; *text; text++) {
        if (*text == '\\' && text[1]) {
            text++;
            *to++ = *text == 'n' ? '\n' : *text == 't' ? '\t' : *text;
        } else {
            *to++ = *text;
        }
    }
}

// Takes a field off the line into *place; false, logged, when there is none.
bool take_field(char **line, char **place, const char *missing)
{
    const char *field = next_field(line);
    if (field)
        s_assign(place, field);
    else
        emsg("%s", missing);
    return field != nullptr;
}

bool take_control(char **line, char **place, const char *missing)
{
    if (!take_field(line, place, missing))
        return false;
    if (s_strcmp(*place, "-") == 0)
        text_free(place);
    return true;
}

bool take_text(char *rest, quest &question)
{
    const char *text = s_strtrm(rest);
    if (!text || !*text) {
        emsg("Missing question text");
        return false;
    }
    s_assign(&question.text, text);
    convert_escapes(question.text);
    return true;
}

unsigned take_type(char **line, quest &question)
{
    const char *word = next_field(line);
    if (const type_word *known = find_word(type_words, word, s_stricmp)) {
        question.type = known->type;
        return known->fields;
    }
    emsg("Unknown question type '%s'", word);
    return asked_fields;
}

void release_questions(pQuestions set)
{
    for (std::uint32_t index = 0; index < set->count; index++)
        quest_release(set->list[index]);
    std::free(set->list);
    set->list = nullptr;
    set->count = 0;
}

bool add_question(pQuestions set, char *line)
{
    if (set->count % more_questions == 0 && !grow_table(set->list, set->count, more_questions)) {
        emsg("Memory allocation error");
        return false;
    }
    quest &question = set->list[set->count];
    if (quest_parse(line, question))
        set->count++;
    else
        quest_release(question);
    return true;
}

const quest *question_at(const questions *set, std::uint32_t index)
{
    return set && index < set->count ? &set->list[index] : nullptr;
}

} // namespace

const char *quest_word(unsigned number)
{
    return word_at(type_words, number);
}

QType quest_word_type(unsigned number)
{
    const type_word *row = row_at(type_words, number);
    return row ? row->type : QType{};
}

unsigned quest_word_fields(unsigned number)
{
    const type_word *row = row_at(type_words, number);
    return row ? row->fields : 0;
}

bool quest_parse(char *line, quest &question)
{
    const unsigned fields = take_type(&line, question);
    char **first = fields & path_first ? &question.text : &question.setting;
    if (!take_field(&line, first, "Missing setting label"))
        return false;
    if (fields & has_control)
        if (!take_control(&line, &question.control, "Missing control") ||
            !take_control(&line, &question.control_cmp, "Missing control comparison"))
            return false;
    char **second = fields & path_first   ? &question.setting
                    : fields & has_target ? &question.text
                                          : &question.help_id;
    if (!take_field(&line, second, "Missing Help ID text"))
        return false;
    // A field can still hold white space that divides no fields.
    if (!(fields & path_first))
        s_assign(second, s_strtrm(*second));
    return !(fields & has_text) || take_text(line, question);
}

void quest_release(quest &question)
{
    for (char **text : {&question.text, &question.setting, &question.control, &question.control_cmp,
                        &question.help_id})
        text_free(text);
    question = {};
}

pQuestions quest_init(Ini *ini)
{
    return new questions{
        .count = 0, .last_error = nullptr, .section = nullptr, .list = nullptr, .ini = ini};
}

int quest_load(pQuestions set, const char *file, const char *section)
{
    if (!set || !file || !section)
        return 0;
    if (set->section && s_stricmp(set->section, section) == 0)
        return 1;
    quest_clear(set);
    errno = 0;
    SectionReader reader(file, section);
    bool complete = true;
    while (char *line = complete ? reader.next() : nullptr)
        complete = add_question(set, line);
    if (!reader.is_open())
        quest_seterror("Error opening '%s'", file);
    else if (reader.failed())
        quest_seterror("Error reading '%s'", file);
    else if (!reader.found())
        emsg("Section '%s' not found", section);
    else if (complete) {
        set->section = s_strdup(section);
        return 1;
    }
    release_questions(set);
    return 0;
}

std::uint32_t quest_count(const questions *set)
{
    return set ? set->count : 0;
}

namespace {

const char *text_at(const questions *set, std::uint32_t index, char *quest::*field)
{
    const quest *question = question_at(set, index);
    return question ? question->*field : nullptr;
}

} // namespace

const char *quest_text(const questions *set, std::uint32_t index)
{
    return text_at(set, index, &quest::text);
}

const char *quest_help(const questions *set, std::uint32_t index)
{
    return text_at(set, index, &quest::help_id);
}

const char *quest_setting(const questions *set, std::uint32_t index)
{
    return text_at(set, index, &quest::setting);
}

const char *quest_control(const questions *set, std::uint32_t index)
{
    return text_at(set, index, &quest::control);
}

const char *quest_control_cmp(const questions *set, std::uint32_t index)
{
    return text_at(set, index, &quest::control_cmp);
}

QType quest_type(const questions *set, std::uint32_t index)
{
    const quest *question = question_at(set, index);
    return question ? question->type : QType{};
}

// --- Asking ----------------------------------------------------------------------------------

// Unlike in the copy script, texts are compared here with regard to case.
bool quest_is_asked(const questions *set, std::uint32_t index)
{
    const quest *question = question_at(set, index);
    const char *control = question ? ini_value_name(set->ini, question->control) : nullptr;
    if (!control)
        return true;
    const char *compare =
        question->control_cmp ? ini_value_or_text(set->ini, question->control_cmp) : nullptr;
    return compare ? s_strcmp(control, compare) == 0 : istrue(control);
}

namespace {

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// Prints all but the last line of a prompt that is too long for one, broken at blanks, and returns
// where the last line begins.
const char *print_wrapped(const char *prompt)
{
    constexpr size_t widest = 80;
    constexpr size_t line_length = 79;
    if (std::strlen(prompt) <= widest)
        return prompt;
    while (std::strlen(prompt) > line_length) {
        size_t length = line_length;
        while (length > 0 && !is_blank(prompt[length]))
            length--;
        const bool at_blank = length > 0;
        if (!at_blank)
            length = line_length;
        say("%.*s\n", static_cast<int>(length), prompt);
        prompt += length;
        while (at_blank && is_blank(*prompt))
            prompt++;
    }
    return prompt;
}

} // namespace

char *quest_default(const questions *set, std::uint32_t index, char *buffer, int size)
{
    const quest *question = question_at(set, index);
    const char *value = question ? ini_value_name(set->ini, question->setting) : nullptr;
    if (!value || !buffer)
        return nullptr;
    if (question->type & QYN)
        value = istrue(value) ? "y" : "n";
    scpy(buffer, value, size);
    return buffer;
}

int quest_ask(const questions *set, std::uint32_t index, char *answer, int size)
{
    const quest *question = question_at(set, index);
    if (!question || !answer || size < 1)
        return 0;
    errno = 0;
    char standard[line_size] = "";
    quest_default(set, index, standard, line_size);
    char prompt[line_size] = "";
    ini_replace(set->ini, question->text, prompt, line_size);
    const size_t length = std::strlen(prompt);
    lprintf(prompt + length, static_cast<unsigned>(line_size - length), " [%s]?", standard);
    say("%s ", print_wrapped(prompt));
    if (read_input(answer, size) == Input::error) {
        quest_seterror("The answer cannot be read");
        return 0;
    }
    // At the end of input what the buffer held before is the answer. Blanks before an answer stay.
    s_strtrm(answer);
    if (*answer)
        return 1;
    if (*standard) {
        scpy(answer, standard, size);
        return 1;
    }
    quest_seterror("You must enter an answer");
    return 0;
}

// --- Judging ---------------------------------------------------------------------------------

namespace {

bool is_occupied(const char *directory)
{
    const bool occupied = has_entries(directory);
    // One that cannot be opened counts as empty, and its reason is nobody's concern.
    errno = 0;
    return occupied;
}

// The value to store for a yes/no answer; null: neither.
const char *truth_of(const char *answer)
{
    return istrue(answer) ? "true" : isfalse(answer) ? "false" : nullptr;
}

void drop_last_separator(char *answer)
{
    const size_t length = std::strlen(answer);
    if (length > 0 && is_separator(answer[length - 1]))
        answer[length - 1] = '\0';
}

// The value that a question of this type stores for an answer; null, with the error set, when the
// answer is not acceptable.
const char *accepted_value(QType type, char *answer)
{
    if (type & QDir)
        drop_last_separator(answer);
    if (type & QExist) {
        if (file_exist(answer))
            return answer;
        if (type & QDir)
            quest_seterror("Directory '%s' must exist", answer);
        else
            quest_seterror("File '%s' must exist", answer);
        return nullptr;
    }
    if (type == QDirEmpty && is_occupied(answer)) {
        quest_seterror("Directory '%s' must be empty", answer);
        return nullptr;
    }
    if (type & QYN) {
        const char *truth = truth_of(answer);
        if (!truth)
            quest_seterror("You must answer either Yes or No");
        return truth;
    }
    return type == QFileName ? strip_ext(strip_path(answer)) : answer;
}

} // namespace

int quest_answer(const questions *set, std::uint32_t index, char *answer)
{
    const quest *question = question_at(set, index);
    if (!question || !answer)
        return 0;
    errno = 0;
    const char *value = accepted_value(question->type, answer);
    if (!value)
        return 0;
    ini_add_name(set->ini, question->setting, value);
    return 1;
}

const char *quest_error()
{
    return last_question_error.text();
}

void quest_seterror(const char *format, ...)
{
    const int reason = errno;
    char message[reasoned_size];
    va_list arguments;
    va_start(arguments, format);
    vformat_reasoned(message, reason != 0 ? std::strerror(reason) : nullptr, format, arguments);
    va_end(arguments);
    emsg("%s", message);
    last_question_error.set(message);
    errno = reason;
}

// --- Releasing -------------------------------------------------------------------------------

void quest_clear(pQuestions set)
{
    if (!set || !set->section)
        return;
    text_free(&set->section);
    release_questions(set);
}

void quest_free(pQuestions *set)
{
    if (!set || !*set)
        return;
    quest_clear(*set);
    text_free(&(*set)->last_error);
    delete *set;
    *set = nullptr;
}
