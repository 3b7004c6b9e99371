// Files and folders of the C library that close themselves.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string_view>

struct file_close {
    void operator()(FILE *open) const noexcept { fclose(open); }
};
using file_stream = std::unique_ptr<FILE, file_close>;

// A file of the host for reading, close-on-exec; null with errno on failure. Whatever stands in its place, a
// pipe say, is not waited for.
inline file_stream open_for_reading(const char *path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    file_stream stream(fd < 0 ? nullptr : fdopen(fd, "r"));
    if (fd >= 0 && !stream)
        close(fd);
    return stream;
}

struct folder_close {
    void operator()(DIR *open) const noexcept { closedir(open); }
};
using folder_stream = std::unique_ptr<DIR, folder_close>;

inline folder_stream open_folder(const char *path)
{
    return folder_stream(opendir(path));
}

// True for the name of an entry of a folder: not empty, without a slash, neither the folder itself nor its
// parent. Only such a name may be put behind a folder's path when it came from outside.
constexpr bool is_file_name(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}
