// The checker: the data file, the init script, the question file, the copy script, and the text of
// the product's files, one of which is the blurb. It looks and never writes.
#include <algorithm>
#include <filesystem>
#include <iterator>

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
    make_scratch(input);
    write_file("blurb.txt", input);
    const char *const names[] = {"install.dat", "install.int", "install.q", "install.cpy"};
    for (size_t number = 0; number < std::size(names); number++)
        write_file(names[number], pieces[number]);
    const size_t before = files_here();
    Product product;
    std::string problem;
    require(load_product(".", "", product, problem), "the product can be read");
    size_t accepted = 0;
    const auto findings = check_product(product, accepted);
    require(std::is_sorted(findings.begin(), findings.end(),
                           [](const Finding &a, const Finding &b) { return a.order < b.order; }),
            "findings come in the order of the files");
    require(std::all_of(findings.begin(), findings.end(),
                        [](const Finding &one) {
                            return one.line > 0 &&
                                   (rule_page(one.rule) || one.rule == "acceptance");
                        }),
            "each has a line and a rule with a page");
    require(files_here() == before, "nothing is written");
    return 0;
}
