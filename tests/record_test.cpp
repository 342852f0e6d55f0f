// What a log tells of a run when it does not hold everything, and the small readers of the system.
#include "record.h"

#include <climits>

#include <sys/statvfs.h>

#include "directory.h"
#include "explain.h"
#include "mounts.h"
#include "names.h"
#include "rows.h"
#include "support.h"
#include "trial.h"

namespace {

constexpr const char *first_lines[] = {"Log file opened in 'web.log'", "host=h", "system_dir=/s",
                                       "current_dir=/c"};
constexpr const char *dialogue_begin = "Finished processing replacable settings";

LogLine message(const std::string &text)
{
    const bool is_error = text.starts_with("Error: ");
    return {
        .process = 7, .level = is_error ? LogError : LogInfo, .text = text.substr(is_error * 7)};
}

RunRecord record_of(const std::vector<std::string> &texts, bool in_dialogue)
{
    RunRecord record;
    for (const char *text : first_lines)
        record.take(message(text));
    if (in_dialogue)
        record.take(message(dialogue_begin));
    for (const std::string &text : texts)
        record.take(message(text));
    return record;
}

std::string events_of(const RunRecord &record)
{
    std::string text;
    for (const Event &event : record.dialogue)
        text += (text.empty() ? "" : ", ") +
                std::string(event.kind == Event::stored    ? "stored "
                            : event.kind == Event::refused ? "refused "
                                                           : "error ") +
                event.name + (event.kind == Event::stored ? "=" : "") + event.value;
    return text;
}

TEST(Record, TheDialogueIsWhatWasStored)
{
    expect_rows(
        {
            "Ini value for 'a' set to 'x'=>stored a=x",
            "Ini setting 'a' created and set to ''=>stored a=",
            "Ini value for 'a' set to 'it's'=>stored a=it's",
            "Ini value for 'a' set to 'one\ntwo'=>stored a=one\ntwo",
            "Ini value for 'a' set to 'cut o=>stored a=cut o",
            "Ini value for 'a' not addded, value is fixed=>refused a",
            "Ini value for 'a' not added, value was empty=>refused a",
            "Ini value for 'a' not found=>",
            "Error: Directory 'a' must exist|Ini value for 'b' set to 'y'=>"
            "error Directory 'a' must exist, stored b=y",
        },
        [](const Fields &row) { return events_of(record_of(row, true)); });
}

// A message ends at its 999th character, whatever that is.
TEST(Record, ALongValueIsKnownToBeCut)
{
    const std::string begin = "Ini value for 'a' set to '";
    for (const size_t length : {998u, 999u}) {
        const std::string value(length - begin.size() - 1, 'x');
        const RunRecord record = record_of({begin + value + "'"}, true);
        ASSERT_EQ(record.dialogue.size(), 1u);
        EXPECT_EQ(record.dialogue[0].value, value);
        EXPECT_EQ(record.dialogue[0].is_cut, length == 999) << length;
    }
}

TEST(Record, TheDataFileEndsWhereTheDialogueBegins)
{
    const RunRecord record = record_of({"Adding 'a'='x=y'", "Error: Missing value", "Adding 'b'=''",
                                        dialogue_begin, "Adding 'c'='z'"},
                                       false);
    const Settings settings = {{"a", "x=y"}, {"b", ""}};
    EXPECT_EQ(record.settings, settings);
    EXPECT_EQ(joined(record.setting_errors), "Missing value");
    EXPECT_EQ(record.host + record.system_dir + record.current_dir, "h/s/c");
    EXPECT_EQ(record.stage, Stage::dialogue);
}

// The script's lines, and then what their commands did. A dropped line is no command.
TEST(Record, ACommandBelongsToItsLine)
{
    const RunRecord record = record_of(
        {
            "Process .cpy file line [MkDir $(d)]",
            "Copy line 'type' is [260]",
            "Process .cpy file line [RmFile out]",
            "Error: Missing not wildcard",
            "Process .cpy file line [CopyFile a,b  *.c,d  $(d)->e k v]",
            "Copy line 'type' is [257]",
            "Copy line 'not' is [*.c,d]",
            "Copy line 'control' is [k]",
            "Copy line 'control_cmp' is [v]",
            "Process .cpy file line [WFile " + std::string(960, 'x'),
            "Processing copy script...",
            "Processing [260:/d->,,,]",
            "Stop on fail not set, continuing...",
            "Processing [257:a,b->/d->e,*.c,d,k,v]",
            "Doing nothing due to controlling setting",
            "Processing [8192:" + std::string(980, 'x'),
            "Processing [1:more->than,there,were,]",
            "Copy script completed successfully",
            "Error: of nobody",
        },
        true);
    ASSERT_EQ(record.script.size(), 4u);
    EXPECT_TRUE(record.script[1].is_dropped);
    EXPECT_EQ(joined(record.script[1].errors), "Missing not wildcard");
    EXPECT_TRUE(record.script[3].text.ends_with("xx"));
    ASSERT_EQ(record.deeds.size(), 3u);
    std::string told;
    for (const Deed &deed : record.deeds)
        told += std::to_string(deed.line) + " " + deed.source.substr(0, 4) + " to " + deed.dest +
                (deed.is_skipped ? " skipped" : "") + (deed.has_failed ? " failed" : "") + "|";
    EXPECT_EQ(told, "0 /d to  failed|2 a,b to /d->e skipped|3 xxxx to |");
    EXPECT_TRUE(record.deeds[2].errors.empty());
    EXPECT_EQ(record.stage, Stage::completed);
}

using LastRunTest = InDirectory;

// Messages by process and value; "new" begins a run, "half" is where the log ends in a message, and
// what has no process is the rest of a line.
std::string log_of(const Fields &row)
{
    std::string text;
    for (const std::string &field : row) {
        const size_t blank = field.find(' ');
        const std::string value = field.substr(blank + 1);
        const std::string begin = "Sun Nov 15 15:14:35  [" + field.substr(0, blank) + "] Info: ";
        if (value == "new")
            for (const char *line : first_lines)
                text += begin + line + "\n";
        if (value == "new")
            text += begin + dialogue_begin + "\n";
        else if (blank == std::string::npos)
            text += field + "\n";
        else
            text += begin + "Ini value for 'n' set to '" + value + (value == "half" ? "" : "'\n");
    }
    return text;
}

TEST_F(LastRunTest, OnlyItsOwnMessagesAreOfTheRun)
{
    expect_rows(
        {
            "7 new|7 a=>a",
            "7 new|7 a|8 b|7 c=>a c",
            "7 new|7 a|8 new|8 b|7 c=>b",
            "7 new|7 a|7 new|7 b=>b",
            "6 a|7 new|7 b=>b",
            "rest|7 new|7 b=>b",
            "7 new|7 a|7 half=>a half",
            "7 a=>'web.log' does not hold a run from its beginning",
            "rest=>'web.log' does not hold a run from its beginning",
        },
        [](const Fields &row) {
            write_text("web.log", log_of(row));
            LastRun run;
            std::string problem;
            if (!read_last_run("web.log", run, problem))
                return problem;
            std::string values;
            for (const Event &event : run.record.dialogue)
                values += (values.empty() ? "" : " ") + event.value;
            return values;
        });
}

using FileTextTest = InDirectory;

// What is cut off would be lost when the changed text is written back.
TEST_F(FileTextTest, GoesOnBehindANullByte)
{
    const std::string text("# a \0 comment\n[install]", 23);
    write_text("web.cpy", text);
    EXPECT_EQ(file_text("web.cpy"), text);
    EXPECT_EQ(file_text("."), "");
    EXPECT_EQ(file_text("missing"), "");
}

TEST(Directory, APathIsBelowADirectoryAndNotBesideIt)
{
    expect_rows(
        {
            "/a|/a=>below",
            "/a/b|/a=>below",
            "/ab|/a=>beside",
            "/a|/a/b=>beside",
            "/a|/=>below",
            "/|/=>below",
            "/a/b|/a/=>below",
        },
        [](const Fields &row) { return is_below(row[0], row[1]) ? "below" : "beside"; });
    EXPECT_EQ(child_path("/", "a"), "/a");
    EXPECT_EQ(child_path("/a", "b"), "/a/b");
}

// Every mount that its path leads to is as the system itself describes it.
TEST(Mounts, TheirFlagsAreThoseOfTheSystem)
{
    constexpr unsigned long compared = ST_NOSUID | ST_NODEV | ST_NOEXEC;
    size_t seen = 0;
    for (const Mount &mount : read_mounts()) {
        struct statvfs system {};
        if (!mount.place.is_open() || ::fstatvfs(mount.place.get(), &system) != 0)
            continue;
        seen++;
        EXPECT_EQ(mount.flags & compared, system.f_flag & compared) << mount.path;
        EXPECT_EQ(mount.is_read_only, (system.f_flag & ST_RDONLY) != 0) << mount.path;
    }
    if (seen == 0)
        GTEST_SKIP() << "this system does not tell which mount a path leads to";
}

TEST(Names, WhoHasNoNameIsANumber)
{
    EXPECT_EQ(owner_name(0), "root");
    EXPECT_EQ(group_name(0), "root");
    EXPECT_EQ(owner_name(UINT_MAX - 7), "4294967288");
    EXPECT_EQ(group_name(UINT_MAX - 7), "4294967288");
}

} // namespace
