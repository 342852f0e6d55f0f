// ini_replace into a buffer of any size: a size, the settings, then the text.
#include <vector>

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t length)
{
    if (length < 2)
        return 0;
    const size_t size = 1 + (bytes[0] * 256U + bytes[1]) % 5000;
    std::string_view input(reinterpret_cast<const char *>(bytes) + 2, length - 2);
    reset_modules(length);
    const Owned<Ini, ini_free> ini(ini_init());
    add_settings(ini.get(), take_piece(input));
    const std::string text(std::string(input).c_str());
    std::vector<char> result(size, 'x');
    ini_replace(ini.get(), text.c_str(), result.data(), static_cast<int>(size));
    require(result.data() == filled_in(ini.get(), text, false).substr(0, size - 1),
            "filled in, and cut to the buffer");
    return 0;
}
