#include "platform/linux/state/mirror_hold.h"

#include "platform/linux/state/folders.h"
#include "platform/linux/state/lock.h"

namespace {

off_t place_of_claim(const std::string &guid)
{
    return place_of_name("claim of " + guid);
}

} // namespace

unique_fd try_hold_mirrors(const std::vector<std::string> &guids)
{
    std::set<off_t> places;
    for (const std::string &guid : guids)
        places.insert(place_of_name(guid));
    return try_lock_places(twinvault, places);
}

unique_fd claim_mirror(const std::string &guid)
{
    return try_lock_places(twinvault, {place_of_claim(guid)});
}

bool is_mirror_in_use(const std::string &guid)
{
    return is_locked(twinvault, place_of_name(guid)) || is_locked(twinvault, place_of_claim(guid));
}
