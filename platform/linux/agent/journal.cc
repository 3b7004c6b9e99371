#include "platform/linux/agent/journal.h"

#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/folders.h"
#include "platform/linux/state/lock.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace {

const std::string path = std::string(kavcdpagt.path) + "/journal";

// A crash of the host may leave an incomplete last line. It is kept, on a line of its own.
bool is_torn(int fd, off_t size)
{
    char last = '\n';
    return size > 0 && pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

bool write_whole(int fd, off_t size, const std::string &line)
{
    const ssize_t count = write(fd, line.data(), line.size());
    if (count == static_cast<ssize_t>(line.size()) && fsync(fd) == 0 &&
        (size > 0 || sync_state_folder(kavcdpagt)))
        return true;
    const int reason = count >= 0 && count < static_cast<ssize_t>(line.size()) ? ENOSPC : errno;
    if (ftruncate(fd, size) != 0)
        log_error("Cannot take back what was written to %s: %s", path.c_str(), strerror(errno));
    errno = reason;
    return false;
}

bool append_line(const std::string &line)
{
    const unique_fd lock = lock_files(kavcdpagt);
    const unique_fd file(
        lock.is_open() ? open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600) : -1);
    struct stat facts {};
    if (!file.is_open() || fstat(file.get(), &facts) != 0)
        return false;
    const bool torn = is_torn(file.get(), facts.st_size);
    if (torn)
        log_error("The last line of %s is torn", path.c_str());
    return write_whole(file.get(), facts.st_size, (torn ? "\n" : "") + line + "\n");
}

} // namespace

std::string time_now()
{
    const time_t now = time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

bool append_journal(const std::string &text)
{
    if (append_line(time_now() + " " + text))
        return true;
    log_error("Cannot write to %s: %s", path.c_str(), strerror(errno));
    return false;
}
