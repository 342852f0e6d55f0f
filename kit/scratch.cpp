#include "scratch.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory.h"
#include "lib.h"

namespace {

constexpr const char *prefix = "product-kit.";
constexpr int as_directory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Opens a directory of ours that nobody uses; not open when it is none.
Descriptor lock_left_over(const Descriptor &parent, const char *name)
{
    Descriptor found(::openat(parent.get(), name, as_directory));
    struct stat info {};
    if (!found.is_open() || ::fstat(found.get(), &info) != 0 || info.st_uid != ::geteuid() ||
        ::flock(found.get(), LOCK_EX | LOCK_NB) != 0)
        found.close();
    return found;
}

void sweep(const Descriptor &parent)
{
    const Directory directory = open_list(parent.get(), ".");
    while (const dirent *entry = next_entry(directory))
        if (wild_match(entry->d_name, "product-kit.*") &&
            lock_left_over(parent, entry->d_name).is_open())
            remove_tree(parent, entry->d_name);
}

} // namespace

bool Scratch::make(const char *directory)
{
    char whole[PATH_MAX];
    if (!::realpath(directory, whole))
        return false;
    parent = whole;
    const Descriptor opened = open_parent();
    if (!opened.is_open())
        return false;
    sweep(opened);
    std::string path = child_path(parent, prefix + std::string("XXXXXX"));
    if (!::mkdtemp(path.data()))
        return false;
    lock = Descriptor(::open(path.c_str(), as_directory));
    if (!lock.is_open() || ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        return false;
    name = last_component(path.c_str());
    return true;
}

Descriptor Scratch::open_parent() const
{
    return Descriptor(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

void Scratch::remove()
{
    if (is_made())
        remove_tree(open_parent(), name.c_str());
}

void remove_tree(const Descriptor &parent, const char *name)
{
    ::fchmodat(parent.get(), name, 0700, 0);
    const Descriptor own(::openat(parent.get(), name, as_directory));
    const Directory directory = open_list(own.get(), ".");
    while (const dirent *entry = next_entry(directory))
        if (::unlinkat(own.get(), entry->d_name, 0) != 0)
            remove_tree(own, entry->d_name);
    ::unlinkat(parent.get(), name, AT_REMOVEDIR);
}
