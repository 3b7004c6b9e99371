#include "platform/linux/state_lock.h"

#include <errno.h>
#include <fcntl.h>

#include <functional>

namespace {

constexpr off_t first_named_place = 1000;

struct flock range_of(off_t place)
{
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = place;
    range.l_len = 1;
    return range;
}

// The lock belongs to the open file, so it keeps threads apart as well; a record lock of fcntl would not.
bool lock_place(int fd, off_t place, int command)
{
    struct flock range = range_of(place);
    int result = -1;
    do
        result = fcntl(fd, command, &range);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

state_fd open_lock(const state_folder &folder, int flags)
{
    const std::string path = std::string(folder.path) + "/lock";
    return state_fd(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600));
}

// Closed, with errno, unless all of the places are locked.
state_fd open_and_lock(const state_folder &folder, const std::set<off_t> &places, int command)
{
    state_fd file = open_lock(folder, O_RDWR | O_CREAT);
    bool is_locked = file.is_open();
    for (const off_t place : places)
        is_locked = is_locked && lock_place(file.get(), place, command);
    if (is_locked)
        return file;
    // A file system may say either when somebody else has a lock.
    const int error = errno == EACCES && file.is_open() ? EAGAIN : errno;
    file = state_fd();
    errno = error;
    return file;
}

} // namespace

off_t place_of_name(const std::string &name)
{
    constexpr size_t places = size_t{1} << 48;
    return first_named_place + static_cast<off_t>(std::hash<std::string>()(name) % places);
}

state_fd lock_files(const state_folder &folder)
{
    return lock_places(folder, {place_of_files});
}

state_fd lock_places(const state_folder &folder, const std::set<off_t> &places)
{
    return open_and_lock(folder, places, F_OFD_SETLKW);
}

state_fd try_lock_places(const state_folder &folder, const std::set<off_t> &places)
{
    return open_and_lock(folder, places, F_OFD_SETLK);
}

bool is_locked(const state_folder &folder, off_t place)
{
    const state_fd file = open_lock(folder, O_RDONLY);
    struct flock range = range_of(place);
    return file.is_open() && fcntl(file.get(), F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}
