// C streams and folders that close themselves.
#pragma once

#include "base/deleter.h"
#include "base/fd.h"

#include <dirent.h>
#include <fcntl.h>

#include <cstdio>
#include <memory>
#include <string_view>

using file_stream = std::unique_ptr<FILE, deleter<fclose>>;
using folder_stream = std::unique_ptr<DIR, deleter<closedir>>;

// Opens a file for reading, close-on-exec; null with errno on failure. Does not block, even on a pipe.
inline file_stream open_for_reading(const char *path)
{
    unique_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    file_stream stream(fd.is_open() ? fdopen(fd.get(), "r") : nullptr);
    if (stream)
        fd.release(); // the stream closes it
    return stream;
}

inline folder_stream open_folder(const char *path)
{
    return folder_stream(opendir(path));
}

// True if NAME can be an entry of a folder: not empty, no slash, neither "." nor "..". Check a name from
// outside before appending it to a path.
constexpr bool is_file_name(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}
