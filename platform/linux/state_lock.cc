#include "platform/linux/state_lock.h"

#include <errno.h>
#include <fcntl.h>

namespace {

// The lock belongs to the open file, so it keeps threads apart as well; a record lock of fcntl would not.
bool lock_place(int fd, off_t place, int command)
{
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = place;
    range.l_len = 1;
    int result = -1;
    do
        result = fcntl(fd, command, &range);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

state_fd open_lock(const state_folder &folder)
{
    const std::string path = std::string(folder.path) + "/lock";
    return state_fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
}

// The descriptor, or what closes it without a change of errno.
state_fd unless_failed(state_fd file, bool is_locked)
{
    const int error = errno;
    if (!is_locked)
        file = state_fd();
    errno = error;
    return file;
}

} // namespace

state_fd lock_files(const state_folder &folder)
{
    return lock_places(folder, {place_of_files});
}

state_fd lock_places(const state_folder &folder, const std::set<off_t> &places)
{
    state_fd file = open_lock(folder);
    bool is_locked = file.is_open();
    for (const off_t place : places)
        is_locked = is_locked && lock_place(file.get(), place, F_OFD_SETLKW);
    return unless_failed(std::move(file), is_locked);
}

state_fd try_lock_place(const state_folder &folder, off_t place)
{
    state_fd file = open_lock(folder);
    const bool is_locked = file.is_open() && lock_place(file.get(), place, F_OFD_SETLK);
    if (!is_locked && errno == EACCES && file.is_open())
        errno = EAGAIN; // a file system may say either
    return unless_failed(std::move(file), is_locked);
}
