#include "calls.h"

#include <bit>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

ssize_t read_memory(pid_t process, std::uint64_t address, void *to, size_t size)
{
    iovec here = {to, size};
    iovec there = {std::bit_cast<void *>(static_cast<std::uintptr_t>(address)), size};
    return ::process_vm_readv(process, &here, 1, &there, 1, 0);
}

namespace {

// A text in the memory of another process; "" when it cannot be read.
std::string read_text_of(pid_t process, std::uint64_t address)
{
    constexpr size_t step = 256; // never over the end of a page
    std::string text;
    while (text.size() < PATH_MAX) {
        char piece[step];
        const std::uint64_t from = address + text.size();
        const ssize_t got = read_memory(process, from, piece, step - from % step);
        if (got <= 0)
            return "";
        const size_t length = ::strnlen(piece, static_cast<size_t>(got));
        text.append(piece, length);
        if (length < static_cast<size_t>(got))
            return text;
    }
    return "";
}

// Where there is no /proc of our own, processes have other numbers in it than among us.
bool has_own_proc()
{
    char text[32] = "";
    return ::readlink("/proc/self", text, sizeof text - 1) > 0 &&
           std::to_string(::getpid()) == text;
}

} // namespace

Descriptor opened_by(pid_t process, int descriptor)
{
    std::string path = "/proc/" + std::to_string(process);
    if (descriptor == AT_FDCWD)
        path = has_own_proc() ? path + "/cwd" : ".";
    else
        path += "/fd/" + std::to_string(descriptor);
    return Descriptor(::open(path.c_str(), O_PATH | O_CLOEXEC));
}

CalledName read_name(pid_t process, int descriptor, std::uint64_t address)
{
    std::string path = read_text_of(process, address);
    const bool is_whole = path.starts_with('/');
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    const size_t divider = path.rfind('/');
    const std::string parent = divider == std::string::npos ? "."
                               : divider == 0               ? "/"
                                                            : path.substr(0, divider);
    const std::string leaf = divider == std::string::npos ? path : path.substr(divider + 1);
    const Descriptor start = is_whole ? Descriptor() : opened_by(process, descriptor);
    return {.parent =
                Descriptor(::openat(start.get(), parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
            .leaf = leaf};
}
