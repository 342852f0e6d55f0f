// The copy script: loaded, looked at through its accessors, and run.
#include <cstring>
#include <vector>

#include "copy.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    reset_modules(size);
    make_scratch("text of $(here)\n");
    write_file("x.cpy", tame(bytes, size));
    const Owned<Ini, ini_free> ini(ini_init());
    // No text that is made with these values leaves the working directory either.
    add_settings(ini.get(), "here d\nyes true\nno false\nowner root:root\n");
    const Owned<copy, copy_free> script(copy_init(ini.get()));
    if (!copy_load(script.get(), "x.cpy", "install"))
        return 0;
    for (unsigned index = 0; index < copy_count(script.get()); index++)
        for (const auto part : {copy_src_path, copy_src_file, copy_dst_path, copy_dst_file})
            for (const unsigned bfsz : {1U, 2U, 256U}) {
                std::vector<char> buffer(bfsz, 'x');
                const char *text = part(script.get(), index, buffer.data(), bfsz);
                require(!text || std::memchr(text, '\0', bfsz), "a part is terminated");
            }
    unsigned long files = 0, copied = 0;
    const int stop_on_fail = static_cast<int>(size % 2);
    require(copy_process(script.get(), &files, &copied, stop_on_fail) || stop_on_fail, "it ends");
    return 0;
}
