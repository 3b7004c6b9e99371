#include "config/save.h"

#include "base/fd.h"
#include "base/log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

namespace {
// The memory shared with the supervisor: the length of the text, 0 when no save is under way, and the text.
unique_fd unfinished;
constexpr off_t text_place = sizeof(uint64_t);

bool write_all(int fd, std::string_view text, off_t place)
{
    while (!text.empty()) {
        const ssize_t count = pwrite(fd, text.data(), text.size(), place);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        text.remove_prefix(static_cast<size_t>(count));
        place += count;
    }
    return true;
}

void keep_length(uint64_t length)
{
    const char *bytes = reinterpret_cast<const char *>(&length);
    if (unfinished.is_open())
        write_all(unfinished.get(), {bytes, sizeof length}, 0);
}

// Says that the text is complete only when it is.
void keep(std::string_view text)
{
    if (unfinished.is_open() && write_all(unfinished.get(), text, text_place))
        keep_length(text.size());
}

std::string kept_text()
{
    uint64_t length = 0;
    if (!unfinished.is_open() || pread(unfinished.get(), &length, sizeof length, 0) != sizeof length)
        return "";
    std::string text(length, '\0');
    const ssize_t count = pread(unfinished.get(), text.data(), length, text_place);
    return count == static_cast<ssize_t>(length) ? text : "";
}

bool make_room(int fd, size_t old_length, std::string_view blanks)
{
    if (write_all(fd, blanks, static_cast<off_t>(old_length)))
        return true;
    const int cause = errno;
    if (ftruncate(fd, static_cast<off_t>(old_length)) != 0)
        log_warning("Failed to cut the blank lines off the config file (%s)", strerror(errno));
    errno = cause;
    return false;
}

bool replace_text(int fd, std::string_view text)
{
    struct stat status {};
    if (fstat(fd, &status) != 0)
        return false;
    const auto old_length = static_cast<size_t>(status.st_size);
    // All memory before the first write: an exception after it would leave a save half done.
    std::string padded(text);
    padded.resize(std::max(old_length, text.size()), '\n');
    const std::string blanks(padded.size() - old_length, '\n');
    if (!make_room(fd, old_length, blanks))
        return false;
    keep(text);
    const bool is_saved = write_all(fd, padded, 0) && ftruncate(fd, static_cast<off_t>(text.size())) == 0;
    keep_length(0);
    return is_saved;
}
} // namespace

int save_in_place(const char *path, std::string_view text)
{
    const unique_fd file(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    if (file.is_open() && replace_text(file.get(), text))
        return 0;
    log_error("Failed to save config file '%s' (%s)", path, strerror(errno));
    return -1;
}

void keep_unfinished_saves()
{
    unfinished = unique_fd(memfd_create("qelcd-save", MFD_CLOEXEC));
}

void finish_save(const char *path)
{
    const std::string text = kept_text();
    if (text.empty())
        return;
    log_warning("The working process ended while it saved the config file; the save is finished now.");
    save_in_place(path, text);
}
