#include "platform/linux/host/sysfs.h"

#include "base/deleter.h"
#include "base/exceptions.h"
#include "base/fd.h"
#include "platform/linux/host/text.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

std::optional<std::string> read_bytes(const std::string &path, size_t limit)
{
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.is_open())
        return std::nullopt;
    std::string bytes;
    ssize_t count = 1;
    while (count > 0 && bytes.size() < limit) {
        char chunk[4096];
        count = read(file.get(), chunk, std::min(sizeof(chunk), limit - bytes.size()));
        if (count > 0)
            bytes.append(chunk, static_cast<size_t>(count));
        else if (count < 0 && errno == EINTR)
            count = 1;
    }
    if (count < 0)
        return std::nullopt;
    return bytes;
}

std::optional<std::string> read_attribute(const std::string &path)
{
    auto text = read_bytes(path);
    if (text && text->ends_with('\n'))
        text->pop_back();
    return text;
}

std::optional<uint64_t> read_number(const std::string &path)
{
    const auto text = read_attribute(path);
    return text ? parse_number(*text) : std::nullopt;
}

bool write_attribute(const std::string &path, const std::string &text)
{
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file.is_open())
        return false;
    const ssize_t count = write(file.get(), text.data(), text.size());
    if (count >= 0)
        errno = EIO; // for a write that was cut short
    return count == static_cast<ssize_t>(text.size());
}

std::optional<std::vector<std::string>> list_folder(const std::string &path)
{
    const std::unique_ptr<DIR, deleter<closedir>> dir(opendir(path.c_str()));
    if (!dir) {
        throw_if_memory_ran_out();
        return std::nullopt;
    }
    std::vector<std::string> names;
    while (const dirent *entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string disk_name_of(std::string path)
{
    constexpr std::string_view folder = "/dev/";
    if (path.starts_with(folder))
        path.erase(0, folder.size());
    std::replace(path.begin(), path.end(), '/', '!');
    return path;
}
