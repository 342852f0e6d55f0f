// The checker: the data file, the init script, the question file, the copy script, and the text of
// the product's files, one of which is the blurb. It looks and never writes.
#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>

#include "check.h"
#include "fuzz.h"

static size_t files_here()
{
    const std::filesystem::recursive_directory_iterator here("."), end;
    return static_cast<size_t>(std::distance(begin(here), end));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    std::string_view input(reinterpret_cast<const char *>(bytes), size);
    std::string pieces[4];
    for (std::string &piece : pieces)
        piece = take_piece(input);
    reset_modules(size);
    // The scratch directory is as it was, since nothing is written; making it anew takes long.
    for (const char *name : {"f", "d/f", "d/e/g", "blurb.txt"})
        write_file(name, input);
    const char *const names[] = {"install.dat", "install.int", "install.q", "install.cpy"};
    for (size_t number = 0; number < std::size(names); number++)
        write_file(names[number], pieces[number]);
    static const size_t before = files_here();
    Product product;
    std::string problem;
    require(load_product(".", "", product, problem), "the product can be read");
    size_t accepted = 0;
    const auto findings = check_product(product, accepted);
    require(std::is_sorted(findings.begin(), findings.end(),
                           [](const Finding &a, const Finding &b) { return a.order < b.order; }),
            "findings come in the order of the files");
    std::set<std::string> rules;
    for (const Finding &finding : findings) {
        require(finding.line > 0, "each has a line");
        rules.insert(finding.rule);
    }
    require(std::all_of(
                rules.begin(), rules.end(),
                [](const std::string &rule) { return rule_page(rule) || rule == "acceptance"; }),
            "each has a rule with a page");
    require(files_here() == before, "nothing is written");
    return 0;
}
