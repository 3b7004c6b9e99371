#include "client/sysfs.h"

#include "base/fd.h"
#include "base/file.h"
#include "base/log.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string_view>

int sysfs_read_attribute(std::string *dst, const char *path)
{
    if (!dst || !path)
        return -1;
    const unique_fd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.is_open()) {
        log_error("Failed to open '%s': %s", path, strerror(errno));
        return -1;
    }
    char text[512];
    const ssize_t got = read(file.get(), text, sizeof text - 1);
    if (got < 0) {
        log_error("Failed to read '%s': %s", path, strerror(errno));
        return -1;
    }
    text[got] = '\0';
    text[strcspn(text, "\n")] = '\0';
    *dst = text;
    return static_cast<int>(dst->size());
}

int get_links_in_dir(std::list<dir_entry> &list, const char *dir)
{
    const folder_stream folder = open_folder(dir);
    if (!folder) {
        const int failure = errno;
        log_error("failed to open dir %s: %s", dir, strerror(failure));
        return failure;
    }
    while (const dirent *entry = readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            list.push_back({std::string(name), std::string(dir) + "/" + entry->d_name});
    }
    return 0;
}
