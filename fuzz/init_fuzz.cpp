// The init script: a data file for its settings, then the script, which is run.
#include "fuzz.h"
#include "init.h"
#include "shared.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    const std::string text = tame(bytes, size);
    std::string_view input = text;
    reset_modules(size);
    make_scratch("text\nof a file\n");
    write_file("x.dat", take_piece(input));
    write_file("x.int", input);
    const Owned<Ini, ini_free> ini(ini_init());
    const Owned<init, init_free> script(init_init());
    require(load_datfile(ini.get(), "x.dat") && init_load(script.get(), "x.int"), "both are read");
    while (const init_item *item = init_get(script.get()))
        require(item->a && item->b, "a kept line has its arguments");
    init_run(script.get(), ini.get());
    return 0;
}
