// A whole run: a word that stands for the options, the data file, the init script, the question
// file, the copy script, what is typed, and the text of the product's files.
#include <iterator>

#include "fuzz.h"
#include "installer.h"
#include "log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    const std::string text = tame(bytes, size);
    std::string_view input = text;
    const std::string options = take_piece(input);
    std::string pieces[5];
    for (std::string &piece : pieces)
        piece = take_piece(input);
    make_scratch(input);
    write_file("blurb.txt", input);
    const char *const names[] = {"install.dat", "install.int", "install.q", "install.cpy", "typed"};
    for (size_t number = 0; number < std::size(names); number++)
        write_file(names[number], pieces[number]);
    require(std::freopen("typed", "r", stdin), "what is typed can be read");
    reset_modules(size);
    log_set(nullptr);
    automate = options.starts_with('a');
    char words[][10] = {"./install", "-special", "task"};
    char *arguments[] = {words[0], words[1], words[2], nullptr};
    require(run_installer(options.ends_with("s\n") ? 3 : 1, arguments) == 0, "it exits with 0");
    text_free(&special_mode);
    return 0;
}
