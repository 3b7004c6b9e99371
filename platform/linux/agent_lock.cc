#include "platform/linux/agent_lock.h"

#include "platform/linux/state_folders.h"
#include "platform/linux/state_lock.h"
#include "platform/linux/weak_log.h"

#include <errno.h>
#include <string.h>

state_fd lock_marks(const std::vector<std::string> &guids)
{
    std::set<off_t> places;
    for (const std::string &guid : guids)
        places.insert(place_of_name(guid));
    if (!make_state_folder(kavcdpagt))
        return state_fd();
    state_fd lock = lock_places(kavcdpagt, places);
    if (!lock.is_open())
        log_error("Cannot lock %s: %s", kavcdpagt.path, strerror(errno));
    return lock;
}
