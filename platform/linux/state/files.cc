#include "platform/linux/state/files.h"

#include "base/fd.h"
#include "platform/linux/host/weak_log.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr char parent_folder[] = "/var/lib";
constexpr size_t size_limit = size_t{64} * 1024;
constexpr int most_set_aside = 1000; // of one name

bool sync_folder(const std::string &path)
{
    const unique_fd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder.is_open() && fsync(folder.get()) == 0;
}

bool write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            text.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

// A file of that name can only be left from a writer that crashed.
bool write_new(const std::string &path, const std::string &text)
{
    unlink(path.c_str());
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    return file.is_open() && write_all(file.get(), text) && fsync(file.get()) == 0;
}

file_content read_all(int fd, std::string *text)
{
    text->clear();
    while (text->size() <= size_limit) {
        char block[4096];
        const ssize_t count = read(fd, block, sizeof block);
        if (count == 0)
            return file_content::text;
        if (count < 0 && errno != EINTR)
            return file_content::failed;
        if (count > 0)
            text->append(block, static_cast<size_t>(count));
    }
    return file_content::foreign;
}

file_content open_and_read(const std::string &path, std::string *text)
{
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file.is_open()) {
        if (errno == ENOENT)
            return file_content::missing;
        return errno == ELOOP || errno == ENXIO ? file_content::foreign : file_content::failed;
    }
    struct stat facts {};
    if (fstat(file.get(), &facts) != 0)
        return file_content::failed;
    if (!S_ISREG(facts.st_mode))
        return file_content::foreign;
    text->reserve(
        std::min(static_cast<size_t>(facts.st_size), size_limit)); // if it grew, it would leave copies
    return read_all(file.get(), text);
}

} // namespace

bool make_state_folder(const state_folder &folder)
{
    if (mkdir(folder.path, 0700) == 0 ? sync_folder(parent_folder) : errno == EEXIST)
        return true;
    log_error("Cannot make %s: %s", folder.path, strerror(errno));
    return false;
}

bool sync_state_folder(const state_folder &folder)
{
    return sync_folder(folder.path);
}

file_content read_state_file(const std::string &path, std::string *text)
{
    const file_content content = open_and_read(path, text);
    if (content == file_content::failed)
        log_error("Cannot read %s: %s", path.c_str(), strerror(errno));
    return content;
}

bool write_state_file(const state_folder &folder, const std::string &path, const std::string &text)
{
    const std::string fresh = std::string(folder.path) + "/.new";
    errno = EFBIG;
    if (text.size() <= size_limit && write_new(fresh, text) && rename(fresh.c_str(), path.c_str()) == 0 &&
        sync_state_folder(folder))
        return true;
    log_error("Cannot write %s: %s", path.c_str(), strerror(errno));
    unlink(fresh.c_str());
    return false;
}

bool set_aside(const state_folder &folder, const std::string &path)
{
    for (int number = 1; number <= most_set_aside; number++) {
        const std::string aside = path + ".damaged-" + std::to_string(number);
        if (renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) {
            sync_state_folder(folder);
            log_error("%s is not a whole record of %s; it is kept as %s", path.c_str(), folder.owner,
                      aside.c_str());
            return true;
        }
        if (errno != EEXIST)
            break;
    }
    log_error("%s is not a whole record of %s, and cannot be set aside: %s", path.c_str(), folder.owner,
              strerror(errno));
    return false;
}
