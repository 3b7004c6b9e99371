// Reading the initiator's folders. Internal to this folder.
#pragma once

#include "base/fd.h"
#include "base/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

// Opens the folder NAME, relative to the folder AT or AT_FDCWD; null with errno on failure: ENOTDIR or ELOOP
// if it is a link or not a folder.
inline folder_stream open_real_folder(int at, const char *name)
{
    unique_fd fd(openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    folder_stream folder(fd.is_open() ? fdopendir(fd.get()) : nullptr);
    if (folder)
        fd.release(); // the folder closes it
    return folder;
}

// The names in a folder except "." and "..". Read them all before removing any: POSIX does not say what
// readdir returns from a folder that changes.
inline std::vector<std::string> names_in(DIR *folder)
{
    std::vector<std::string> names;
    while (const dirent *entry = readdir(folder)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    return names;
}
