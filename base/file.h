// Files and folders of the C library that close themselves.
#pragma once

#include <dirent.h>

#include <cstdio>
#include <memory>

struct file_close {
    void operator()(FILE *open) const noexcept { fclose(open); }
};
using file_stream = std::unique_ptr<FILE, file_close>;

// For reading, close-on-exec; null with errno on failure.
inline file_stream open_for_reading(const char *path)
{
    return file_stream(fopen(path, "re"));
}

struct folder_close {
    void operator()(DIR *open) const noexcept { closedir(open); }
};
using folder_stream = std::unique_ptr<DIR, folder_close>;

inline folder_stream open_folder(const char *path)
{
    return folder_stream(opendir(path));
}
