#include "platform/linux/sysfs.h"

#include "platform/linux/text.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string_view>

std::optional<std::string> read_bytes(const std::string &path, size_t limit)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return std::nullopt;
    std::string bytes;
    ssize_t count = 1;
    while (count > 0 && bytes.size() < limit) {
        char chunk[4096];
        count = read(fd, chunk, std::min(sizeof(chunk), limit - bytes.size()));
        if (count > 0)
            bytes.append(chunk, static_cast<size_t>(count));
        else if (count < 0 && errno == EINTR)
            count = 1;
    }
    close(fd);
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
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const ssize_t count = write(fd, text.data(), text.size());
    const int reason = count < 0 ? errno : EIO;
    close(fd);
    errno = reason;
    return count == static_cast<ssize_t>(text.size());
}

std::optional<std::vector<std::string>> list_folder(const std::string &path)
{
    struct closer {
        void operator()(DIR *dir) const noexcept { closedir(dir); }
    };
    const std::unique_ptr<DIR, closer> dir(opendir(path.c_str()));
    if (!dir)
        return std::nullopt;
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
