#include "tcp.h"

#include <cerrno>
#include <cstring>

#include <netdb.h>
#include <unistd.h>

#include "lib.h"
#include "log.h"

int tcp_is_init = 0;
int contimeout = 10000;

char *tcp_hostname(char *buffer, int size)
{
    if (!buffer || size < 1)
        return buffer;
    // A name that was cut to the limit need not be terminated.
    buffer[size - 1] = '\0';
    if (::gethostname(buffer, static_cast<size_t>(size) - 1) != 0) {
        emsg("Gethostname failed, %s", std::strerror(errno));
        scpy(buffer, "127.0.0.1", size);
    }
    return buffer;
}

int tcp_init()
{
    dmsg("Sockets initialised");
    tcp_is_init = 1;
    return 1;
}

char *tcp_getipbyname(const char *name, char *buffer, int size)
{
    errno = 0;
    const hostent *host = name ? ::gethostbyname(name) : nullptr;
    if (!host) {
        emsg("Socket gethostbyname failed, %s", std::strerror(errno));
        return nullptr;
    }
    const char *address = nullptr;
    for (char **list = host->h_addr_list; *list; list++)
        address = *list;
    if (!address || !buffer || size < 1)
        return nullptr;
    unsigned char bytes[4];
    std::memcpy(bytes, address, sizeof bytes);
    lprintf(buffer, static_cast<unsigned>(size), "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2],
            bytes[3]);
    return buffer;
}

int tcp_isip(const char *text)
{
    return text && text[std::strspn(text, "0123456789.")] == '\0';
}
