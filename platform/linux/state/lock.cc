#include "platform/linux/state/lock.h"

#include "base/hash.h"

#include <fcntl.h>

#include <cerrno>

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

// The lock belongs to the open file description, so it also works between threads; a traditional fcntl lock
// would not.
bool lock_place(int fd, off_t place, int command)
{
    struct flock range = range_of(place);
    int result = -1;
    do
        result = fcntl(fd, command, &range);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

unique_fd open_lock(const state_folder &folder, int flags)
{
    const std::string path = std::string(folder.path) + "/lock";
    return unique_fd(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600));
}

// Closed, with errno, unless all places are locked.
unique_fd open_and_lock(const state_folder &folder, const std::set<off_t> &places, int command)
{
    unique_fd file = open_lock(folder, O_RDWR | O_CREAT);
    bool is_locked = file.is_open();
    for (const off_t place : places)
        is_locked = is_locked && lock_place(file.get(), place, command);
    if (is_locked)
        return file;
    // File systems report a lock of another holder with either error.
    const int error = errno == EACCES && file.is_open() ? EAGAIN : errno;
    file = unique_fd();
    errno = error;
    return file;
}

} // namespace

off_t place_of_name(const std::string &name)
{
    constexpr uint64_t places = uint64_t{1} << 48;
    return first_named_place + static_cast<off_t>(fnv1a_64(name) % places);
}

unique_fd lock_files(const state_folder &folder)
{
    return lock_places(folder, {place_of_files});
}

unique_fd lock_places(const state_folder &folder, const std::set<off_t> &places)
{
    return open_and_lock(folder, places, F_OFD_SETLKW);
}

unique_fd try_lock_places(const state_folder &folder, const std::set<off_t> &places)
{
    return open_and_lock(folder, places, F_OFD_SETLK);
}

bool is_locked(const state_folder &folder, off_t place)
{
    const unique_fd file = open_lock(folder, O_RDONLY);
    struct flock range = range_of(place);
    return file.is_open() && fcntl(file.get(), F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}
