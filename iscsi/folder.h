// Folders of the initiator. Internal to this folder.
#pragma once

#include "base/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

// The folder NAME, relative to the folder AT or AT_FDCWD; null with errno on failure, which is ENOTDIR or
// ELOOP when a link or anything else stands in its place.
inline folder_stream open_real_folder(int at, const char *name)
{
    const int fd = openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    folder_stream folder(fd < 0 ? nullptr : fdopendir(fd));
    if (fd >= 0 && !folder)
        close(fd);
    return folder;
}

// The names in a folder but "." and "..", all of them before the first is removed: what a folder that changes
// while it is being read still shows is left open by POSIX.
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
