// The web server's configuration, at the first of its places. The source is included for the facts
// that it keeps for the rest of a run, which must be forgotten here.
#include "init.cpp"

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    reset_modules(size);
    write_file("/tmp/httpd.conf", {reinterpret_cast<const char *>(bytes), size});
    require(Stream(open_text(http_files[0])) != nullptr, "the file can be found");
    for (Fact &fact : facts)
        fact.known = false;
    char values[4][line_size];
    for (const unsigned wanted : {1U, 2U, 4U, 8U, 15U}) {
        const auto value = [&](unsigned n) { return wanted & 1U << n ? values[n] : nullptr; };
        char reason[line_size] = "";
        const int found = init_find_http_conf(value(0), value(1), value(2), value(3), reason);
        require(found || *reason, "what is not found has a reason");
    }
    return 0;
}
