// For the program that is linked statically: the C library would load its modules for users and
// groups from the host, and they only fit a library of the very same version. So it is told to look
// into /etc/passwd and /etc/group alone, for which it needs no module.
#include <nss.h>

namespace {

[[maybe_unused]] const int users = __nss_configure_lookup("passwd", "files");
[[maybe_unused]] const int groups = __nss_configure_lookup("group", "files");

} // namespace
