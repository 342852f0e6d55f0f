// System calls of other processes that wait for an answer: the instructions of the filter that
// holds them up, and what their arguments lead to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/types.h>

#include "lib.h"

// That of the programs which are built as this one; their calls have the numbers SYS_... 0: it is
// none of the known ones.
#if defined __x86_64__
constexpr unsigned own_architecture = AUDIT_ARCH_X86_64;
#elif defined __i386__
constexpr unsigned own_architecture = AUDIT_ARCH_I386;
#elif defined __aarch64__
constexpr unsigned own_architecture = AUDIT_ARCH_AARCH64;
#else
constexpr unsigned own_architecture = 0;
#endif

// Takes up a word of a call by its place in seccomp_data.
constexpr sock_filter load_word(size_t place)
{
    return {BPF_LD | BPF_W | BPF_ABS, 0, 0, static_cast<unsigned>(place)};
}

// Passes over so many instructions when the word is the value, and when it is another.
constexpr sock_filter if_equal(unsigned value, unsigned char skip, unsigned char otherwise)
{
    return {BPF_JMP | BPF_JEQ | BPF_K, skip, otherwise, value};
}

// The same for a word that has one of the bits.
constexpr sock_filter if_any(unsigned bits, unsigned char skip, unsigned char otherwise)
{
    return {BPF_JMP | BPF_JSET | BPF_K, skip, otherwise, bits};
}

// Ends the filter: SECCOMP_RET_ALLOW or the like.
constexpr sock_filter decide(unsigned action)
{
    return {BPF_RET | BPF_K, 0, 0, action};
}

// Reads from the memory of another process; the number of bytes, -1 with errno set.
ssize_t read_memory(pid_t process, std::uint64_t address, void *to, size_t size);

// What a program means by a descriptor, AT_FDCWD too; not open when it means nothing.
Descriptor opened_by(pid_t process, int descriptor);

// A name as a program gave it in a call: the directory, and what is in it; "" when the name cannot
// be read, or ends in no name, as "/".
struct CalledName {
    Descriptor parent;
    std::string leaf;
};
CalledName read_name(pid_t process, int descriptor, std::uint64_t address);
