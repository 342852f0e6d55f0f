// A settings file written from a template: the settings, then the template.
#include "copy.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    std::string_view input(reinterpret_cast<const char *>(bytes), size);
    reset_modules(size);
    const Owned<Ini, ini_free> ini(ini_init());
    add_settings(ini.get(), take_piece(input));
    write_file("from", input);
    write_file("x.cpy", "[install]\nIni from to\n");
    const Owned<copy, copy_free> script(copy_init(ini.get()));
    require(copy_load(script.get(), "x.cpy", "install") == 1, "the script is read");
    require(copy_write_ini(script.get(), 0) == 1, "the settings file is written");

    const std::string text(std::string(input).c_str());
    const Text filled(replace_vars(script.get(), text.c_str()));
    require(!filled == (text.find("$(") == text.npos), "no reference, no new text");
    require(!filled || filled.get() == filled_in(ini.get(), text, true).substr(0, 9999),
            "filled in");
    return 0;
}
