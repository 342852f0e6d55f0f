// What is known about a product's settings before anything has run: who mentions them and how, and
// which values each can have where a line looks at it.
//
// Values are sets of possible texts, or anything. The walk goes the way of a run: built-in
// settings, data file, every probe, then each section by itself, its questions and then its
// commands. A line with a condition may run or not; a jump may skip what lies between. So a value
// that is not in a set cannot come up in a run, while one that is need not.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ini.h"
#include "nearest.h"
#include "product.h"

// How a line mentions a setting.
enum class Role {
    reference, // as $(name), in a text that is filled in
    control,   // as if-setting
    compare,   // as what it is compared with; may be a literal
    source,    // its value is looked at, and nothing else will do
    value,     // its value is taken, or the word itself when it has none
    target,    // it gets a value
};

struct Mention {
    Role role;
    std::string name;
    const ProductFile *file;
    const Line *line;
};

// What a setting can hold at one place.
struct Value {
    bool may_be_none = true;     // it may have no value
    bool anything = false;       // it may also be some text that nobody can know beforehand
    std::set<std::string> texts; // those it may have, references to built-in settings unfilled

    bool must_be_none() const { return may_be_none && !anything && texts.empty(); }
    // True when all texts are known and whole.
    bool is_known() const;
    // The only text it can have; null when there are several, or none for certain.
    const std::string *only_text() const;

    // Has both what this and what the other may have.
    void join(const Value &other);
};

struct Setting {
    const Line *data = nullptr; // its first line in the data file
    bool built_in = false;
    std::vector<const Mention *> setters; // lines that give it a value, in file order
    size_t uses = 0;                      // other mentions
};

// True for the name of a setting that the program makes itself, as "host".
bool is_built_in(const std::string &name);

class Flow {
  public:
    explicit Flow(const Product &product);
    Flow(const Flow &) = delete;
    Flow &operator=(const Flow &) = delete;

    const std::vector<Mention> &mentions() const { return all_mentions; }

    // Those of one line.
    const std::vector<const Mention *> &mentions_of(const Line &line) const;

    // The setting of exactly that name, which the data file, the program or any line makes; null:
    // nothing ever gives it a value.
    const Setting *find(const std::string &name) const;
    const std::map<std::string, Setting> &settings() const { return known; }

    // The setting of the data file or of the program that a reference in the data file means: there
    // case does not count. Null: there is none.
    const std::string *data_name(const std::string &name) const;

    // The name of a setting that a word is probably meant for; "" when none is near.
    std::string nearest(const std::string &word) const;
    // The same for the name of a setting, which is not counted itself.
    std::string nearest_other(const std::string &name) const;

    // What a setting that a line mentions can hold when the line runs; and when a command's section
    // is loaded, which is when its references are filled in, or a question is come to for the first
    // time.
    const Value &at(const Line &line, const std::string &name) const;
    const Value &at_load(const Line &line, const std::string &name) const;

    // A path of the copy script with what is certain filled in: "$(current_dir)/" is left away, and
    // so is "./"; a setting that may have several values stays as its reference.
    const std::string &path(const std::string &field) const;

    // The value of a data line with its references filled in; those to built-in settings stay.
    const std::string &resolved(const std::string &name) const;

  private:
    struct State;
    using Seen = std::vector<std::pair<std::string, Value>>;

    void collect_mentions();
    void add_mention(Role role, const char *name, const ProductFile &file, const Line &line);
    void add_references(const char *text, const ProductFile &file, const Line &line);
    void mention_probe(const Line &line);
    void mention_question(const Line &line);
    void mention_command(const Line &line);
    void build_settings();
    std::string resolve(const std::string &name, std::set<std::string> &open);

    void walk();
    void walk_probes(State &state);
    void walk_questions(State &state, const std::vector<const Line *> &lines, bool first);
    void walk_commands(State &state, const std::vector<const Line *> &lines);
    void note(const Line &line, const State &state, std::unordered_map<const Line *, Seen> &seen);

    const Product &product;
    std::vector<Mention> all_mentions;
    std::unordered_map<const Line *, std::vector<const Mention *>> by_line;
    std::map<std::string, Setting> known;
    Words names;                                             // of all settings
    std::unordered_map<std::string, std::string> data_names; // by the name in lower case
    std::map<std::string, std::string> resolved_values;
    mutable std::unordered_map<std::string, std::string> paths; // those that were asked for
    std::unordered_map<const Line *, Seen> seen_at;
    std::unordered_map<const Line *, Seen> seen_at_load;
};

// Calls back with each reference in a text, which may be null; one that is not closed comes last.
template <typename Take> void for_each_reference(const char *text, Take take)
{
    Reference reference;
    while (text && find_reference(text, reference)) {
        take(reference);
        text = reference.end;
    }
}
