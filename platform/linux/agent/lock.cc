#include "platform/linux/agent/lock.h"

#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/folders.h"
#include "platform/linux/state/lock.h"

#include <cerrno>
#include <cstring>

unique_fd lock_marks(const std::vector<std::string> &guids)
{
    std::set<off_t> places;
    for (const std::string &guid : guids)
        places.insert(place_of_name(guid));
    if (!make_state_folder(kavcdpagt))
        return unique_fd();
    unique_fd lock = lock_places(kavcdpagt, places);
    if (!lock.is_open())
        log_error("Cannot lock %s: %s", kavcdpagt.path, strerror(errno));
    return lock;
}
