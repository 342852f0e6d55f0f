// The data file and the references between its values.
#include <cstring>

#include "fuzz.h"
#include "shared.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    reset_modules(size);
    write_file("x.dat", {reinterpret_cast<const char *>(bytes), size});
    const Owned<Ini, ini_free> ini(ini_init());
    require(load_datfile(ini.get(), "x.dat") == 1, "the data file is read");
    require(ini_items(ini.get()) >= 4, "the built-in settings are there");
    for (int index = 0; index < ini_items(ini.get()); index++) {
        const char *value = ini_value(ini.get(), index);
        require(!value || std::strlen(value) < line_size, "a value is no longer than a line");
        ini_add(ini.get(), index, ini_label(ini.get(), index));
    }
    return 0;
}
