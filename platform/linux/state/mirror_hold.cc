#include "platform/linux/state/mirror_hold.h"

#include "platform/linux/state/folders.h"
#include "platform/linux/state/lock.h"

unique_fd try_hold_mirrors(const std::vector<std::string> &guids)
{
    std::set<off_t> places;
    for (const std::string &guid : guids)
        places.insert(place_of_name(guid));
    return try_lock_places(twinvault, places);
}

bool is_mirror_held(const std::string &guid)
{
    return is_locked(twinvault, place_of_name(guid));
}
