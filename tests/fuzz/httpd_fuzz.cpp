// The web server's configuration, at the first of its places. The source is included for the facts
// that it keeps for the rest of a run, which must be forgotten here.
#include "init.cpp"

#include "fuzz.h"

namespace {

void look_up(char *user, char *group, char *root, char *scripts)
{
    char reason[line_size] = "";
    const int found = init_find_http_conf(user, group, root, scripts, reason);
    require(found || *reason, "what is not found has a reason");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    reset_modules(size);
    write_file("/tmp/httpd.conf", {reinterpret_cast<const char *>(bytes), size});
    require(Stream(open_text(http_files[0])) != nullptr, "the file can be found");
    done_user = done_group = done_root = done_scripts = 0;
    char facts[4][line_size];
    look_up(facts[0], nullptr, nullptr, nullptr);
    look_up(nullptr, facts[1], nullptr, nullptr);
    look_up(nullptr, nullptr, facts[2], nullptr);
    look_up(nullptr, nullptr, nullptr, facts[3]);
    look_up(facts[0], facts[1], facts[2], facts[3]);
    return 0;
}
