// Words that are nearly alike: which one a misspelt word is probably meant for.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// The number of letters to change, add, leave out or swap to get from one word to the other, up to
// `most`; more than that gives most + 1.
size_t distance(std::string_view a, std::string_view b, size_t most);

// What the distances of a word are reckoned in: made once for many.
struct DistanceRows {
    std::vector<size_t> before, last, row;
    size_t cells = 0; // that were reckoned
};

// Many words to look among, in an order of their own. It is sorted out once which of them can be
// near a word at all, and a search looks at these alone.
class Words {
  public:
    explicit Words(std::vector<std::string> words = {}) : texts(std::move(words)) {}

  private:
    friend class NearestWord;

    struct Place {
        std::uint64_t letters; // that are in the word, as a set
        size_t number;         // of the word
    };

    void sort_out() const;
    // Many words that are near to many others are no misspelt ones, and all time has its end.
    bool is_tired() const { return effort > most_effort; }

    std::vector<std::string> texts;
    mutable std::unordered_map<size_t, std::vector<Place>> by_length;
    mutable std::unordered_multimap<std::string, size_t> by_folded; // by the word in lower case
    // Of all searches, in pairs of letters that were compared.
    mutable size_t effort = 0;
    static constexpr size_t effort_of_look = 8;
    static constexpr size_t effort_of_rank = 100;
    static constexpr size_t most_effort = 4'000'000;
};

// Among the words that it is shown the first of those that are nearest to one that is probably
// misspelt. A word is near when few of its letters differ: one in four, and not all.
class NearestWord {
  public:
    // The rank of a candidate among those that are as near, 0 being the first; not_meant: none.
    using Choice = std::function<int(const std::string &candidate)>;
    static constexpr int not_meant = -1;

    explicit NearestWord(std::string_view word);

    // Looks at all of many words; of those with the same rank the first counts. Each has `end`
    // behind it, and so has the word.
    void look_among(const Words &words, const Choice &rank, std::string_view end = "");

    const std::string &best() const { return found; } // "": none is near

  private:
    struct Search;

    void take(Search &search, size_t number, size_t apart);
    void look_at_alike(Search &search);
    void look_at_length(Search &search, size_t length);
    void give_up();

    std::string word;
    size_t nearest; // only what is nearer counts
    std::string found;
    DistanceRows rows;
};

// The nearest of many words; "" when none is near.
std::string nearest_word(std::string_view word, const Words &words);
