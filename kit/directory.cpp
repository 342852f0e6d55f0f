#include "directory.h"

#include <cstring>

#include <fcntl.h>

bool is_below(const std::string &path, const std::string &directory)
{
    return path.starts_with(directory) &&
           (path.size() == directory.size() || directory.ends_with('/') ||
            path[directory.size()] == '/');
}

std::string child_path(const std::string &directory, const std::string &name)
{
    return directory.ends_with('/') ? directory + name : directory + '/' + name;
}

void directory_free(DIR **stream)
{
    ::closedir(*stream);
    *stream = nullptr;
}

Directory open_list(int parent, const char *path)
{
    const int opened =
        ::openat(parent, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    return Directory(opened < 0 ? nullptr : ::fdopendir(opened));
}

const dirent *next_entry(const Directory &directory)
{
    const dirent *entry = directory ? ::readdir(directory.get()) : nullptr;
    while (entry && (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0))
        entry = ::readdir(directory.get());
    return entry;
}
