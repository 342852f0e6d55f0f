#include "nearest.h"

#include <algorithm>
#include <numeric>

#include "product.h"

namespace {

size_t distance(std::string_view a, std::string_view b, size_t most, DistanceRows &rows)
{
    if (a.size() > b.size() + most || b.size() > a.size() + most)
        return most + 1;
    while (!a.empty() && !b.empty() && a.front() == b.front()) {
        a.remove_prefix(1);
        b.remove_prefix(1);
    }
    while (!a.empty() && !b.empty() && a.back() == b.back()) {
        a.remove_suffix(1);
        b.remove_suffix(1);
    }
    if (std::min(a.size(), b.size()) == 0 || std::max(a.size(), b.size()) == 1)
        return std::min(std::max(a.size(), b.size()), most + 1);
    // Only cells near the diagonal can be few changes away; around them stands what is too many.
    auto &[before, last, row, cells] = rows;
    for (std::vector<size_t> *each : {&before, &last, &row})
        if (each->size() < b.size() + 2)
            each->resize(b.size() + 2);
    std::iota(last.begin(), last.begin() + static_cast<std::ptrdiff_t>(b.size() + 1), size_t{0});
    size_t least_before = 0;
    for (size_t i = 1; i <= a.size(); i++) {
        const size_t from = i > most ? i - most : 1;
        const size_t to = std::min(b.size(), i + most);
        cells += to + 1 - from;
        row[from - 1] = from == 1 ? i : most + 1;
        size_t least = row[from - 1];
        for (size_t j = from; j <= to; j++) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
            least = std::min(least, row[j]);
        }
        row[to + 1] = most + 1;
        if (std::min(least, least_before) > most)
            return most + 1;
        least_before = least;
        before.swap(last);
        last.swap(row);
    }
    return std::min(last[b.size()], most + 1);
}

// The letters of a word, as a set. Changing one letter of a word takes at most one out of this and
// puts one in, so that most words need no closer look.
std::uint64_t letters_of(std::string_view word)
{
    std::uint64_t letters = 0;
    for (const char c : word)
        letters |= std::uint64_t{1} << (static_cast<unsigned char>(c) % 64);
    return letters;
}

bool can_be_near(std::uint64_t a, std::uint64_t b, size_t most)
{
    std::uint64_t others = a ^ b;
    for (size_t left = 2 * most; others != 0 && left > 0; left--)
        others &= others - 1;
    return others == 0;
}

// Nothing is near a shorter one.
constexpr size_t shortest_candidate = 3;

} // namespace

size_t distance(std::string_view a, std::string_view b, size_t most)
{
    DistanceRows rows;
    return distance(a, b, most, rows);
}

void Words::sort_out() const
{
    if (!by_length.empty())
        return;
    for (size_t number = 0; number < texts.size(); number++) {
        const std::string &text = texts[number];
        by_length[text.size()].push_back({.letters = letters_of(text), .number = number});
        by_folded.emplace(folded(text), number);
    }
}

NearestWord::NearestWord(std::string_view of)
    : word(of), nearest(of.size() < 2 ? 0 : std::max<size_t>(1, of.size() / 4) + 1)
{
}

// What is looked for among many words, and which of them has been found.
struct NearestWord::Search {
    const Words &words;
    const Choice &rank;
    std::string_view end;
    std::string_view front; // the word without its end
    std::uint64_t letters;  // of the front
    size_t first = 0;       // the place of the one found, by rank and number; 0: none is before it
};

// Takes one that is meant rather than what has been found, which is no nearer.
void NearestWord::take(Search &search, size_t number, size_t apart)
{
    const Words &words = search.words;
    words.effort += Words::effort_of_rank;
    std::string whole = words.texts[number];
    whole += search.end;
    const int rank = whole.size() < shortest_candidate ? not_meant : search.rank(whole);
    if (rank == not_meant)
        return;
    const size_t place = static_cast<size_t>(rank) * words.texts.size() + number;
    if (apart == nearest && place >= search.first)
        return;
    found = whole;
    nearest = apart;
    search.first = place;
}

void NearestWord::look_among(const Words &words, const Choice &rank, std::string_view end)
{
    std::string_view front = word;
    front.remove_suffix(end.size());
    Search search{
        .words = words, .rank = rank, .end = end, .front = front, .letters = letters_of(front)};
    words.sort_out();
    look_at_alike(search);
    // Those of like length come first: they are the nearest, and leave less to look at.
    for (size_t more = 0; more <= nearest && nearest > 0; more++) {
        look_at_length(search, front.size() + more);
        if (more > 0 && more <= front.size())
            look_at_length(search, front.size() - more);
    }
}

// One that differs in the case of its letters alone is nearer than any other.
void NearestWord::look_at_alike(Search &search)
{
    if (nearest == 0)
        return;
    const auto [begin, end] = search.words.by_folded.equal_range(folded(std::string(search.front)));
    for (auto place = begin; place != end; ++place) {
        if (search.words.is_tired())
            return give_up();
        take(search, place->second, 0);
    }
}

// Of those as near as the one found only an earlier one counts.
void NearestWord::look_at_length(Search &search, size_t length)
{
    const Words &words = search.words;
    const auto places = words.by_length.find(length);
    if (places == words.by_length.end())
        return;
    for (const Words::Place &place : places->second) {
        const size_t most = place.number < search.first ? nearest : nearest - 1;
        if (most == 0)
            return;
        if (!can_be_near(search.letters, place.letters, most))
            continue;
        if (words.is_tired())
            return give_up();
        rows.cells = 0;
        const size_t apart = distance(search.front, words.texts[place.number], most, rows);
        words.effort += Words::effort_of_look + rows.cells;
        if (apart <= most)
            take(search, place.number, apart);
    }
}

void NearestWord::give_up()
{
    found.clear();
    nearest = 0;
}

std::string nearest_word(std::string_view word, const Words &words)
{
    NearestWord nearest(word);
    nearest.look_among(words, [](const std::string &) { return 0; });
    return nearest.best();
}
