// A whole run: the options' letters, the data file, the init script, the question file, the copy
// script, what is typed, and the text of the product's files.
#include <cstdio>
#include <vector>

#include "fuzz.h"
#include "installer.h"
#include "lib.h"
#include "log.h"

int installer_main(int argc, char **argv);

namespace {

void run(const std::string &options)
{
    std::vector<std::string> words = {"./install"};
    for (const char letter : options.substr(0, 4)) {
        if (letter == 'a')
            words.emplace_back("-automate");
        else if (letter == 'd')
            words.emplace_back("-debug");
        else if (letter == 's')
            words.insert(words.end(), {"-special", "task"});
    }
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    require(installer_main(static_cast<int>(words.size()), arguments.data()) == 0,
            "it exits with 0");
}

} // namespace

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
    for (size_t number = 0; number < std::size(pieces); number++)
        write_file(names[number], pieces[number]);
    require(std::freopen("typed", "r", stdin), "what is typed can be read");
    reset_modules(size);
    log_set(nullptr);
    automate = 0;
    run(options);
    text_free(&special_mode);
    return 0;
}
