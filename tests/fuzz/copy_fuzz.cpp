// The copy script: loaded, looked at through its accessors, and run.
#include <cstring>
#include <vector>

#include "copy.h"
#include "fuzz.h"
#include "ini.h"
#include "lib.h"

namespace {

void split(const copy *script, unsigned index)
{
    for (const auto part : {copy_src_path, copy_src_file, copy_dst_path, copy_dst_file}) {
        for (const unsigned size : {1U, 2U, 20U, 256U}) {
            std::vector<char> buffer(size, 'x');
            if (const char *text = part(script, index, buffer.data(), size))
                require(std::memchr(text, '\0', size), "a part is terminated");
        }
    }
}

} // namespace

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
    for (unsigned index = 0; index < copy_count(script.get()); index++) {
        require(copy_src(script.get(), index), "a kept command has a source");
        split(script.get(), index);
    }
    copy_setup(
        script.get(), [](char *, char *, int) {}, [](char *, char *, int) {});
    unsigned long files = 0;
    unsigned long copied = 0;
    const int stop_on_fail = static_cast<int>(size % 2);
    const int done = copy_process(script.get(), &files, &copied, stop_on_fail);
    require(done == 1 || stop_on_fail, "only a failing command stops a script");
    return 0;
}
