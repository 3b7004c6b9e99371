#include "platform/linux/agent/level_holds.h"

#include "platform/linux/agent/freeze.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/level_hold.h"
#include "platform/linux/state/text.h"

#include <cerrno>
#include <memory>

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto sync_limit = 10s;
constexpr auto time_after_sync = 500ms;

// Holds those that HOLDS lacks. Returns how many it holds then, or stops at the first one that cannot be
// held.
bool hold_rest(const mirrors_to_hold &mirrors, steady_clock::time_point end, hold_manner manner,
               std::vector<unique_fd> *holds)
{
    for (size_t i = holds->size(); i < mirrors.guids.size(); i++) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - steady_clock::now());
        unique_fd hold(tw_hold_at_level(mirrors.guids[i].c_str(), static_cast<int>(left.count()), manner));
        if (!hold.is_open())
            return false;
        holds->push_back(std::move(hold));
    }
    return true;
}

std::unique_ptr<freeze_guard> prepare_freeze(const mirrors_to_hold &mirrors, milliseconds deadline,
                                             std::string *why)
{
    auto systems = open_file_systems(mirrors.disks, mirrors.needed, why);
    if (!systems)
        return nullptr;
    return freeze_guard::start(guard_program(), std::move(*systems), deadline, why);
}

} // namespace

bool hold_each(const mirrors_to_hold &mirrors, steady_clock::time_point end, std::vector<unique_fd> *holds,
               std::string *why)
{
    if (hold_rest(mirrors, end, hold_at_leisure, holds))
        return true;
    const int error = errno;
    *why = escaped(mirrors.guids[holds->size()]) + " was not level with its disk in time";
    errno = error;
    return false;
}

freeze_result hold_in_freeze(const mirrors_to_hold &mirrors, milliseconds deadline,
                             std::vector<unique_fd> *holds, std::string *why)
{
    const auto guard = prepare_freeze(mirrors, deadline, why);
    if (!guard || !guard->sync(sync_limit, why))
        return freeze_result::not_done;
    if (hold_rest(mirrors, steady_clock::now() + time_after_sync, hold_at_leisure, holds))
        return freeze_result::held;
    // Those that are held already show an earlier moment. All are held anew, at one that they have in common.
    holds->clear();
    holds->reserve(mirrors.guids.size());
    const auto end = steady_clock::now() + deadline;
    if (!guard->freeze(why))
        return freeze_result::not_done;
    const bool are_held = hold_rest(mirrors, end, hold_in_haste, holds);
    const bool were_frozen = guard->thaw(why); // until the last one was held
    const auto ms = static_cast<long long>(guard->time_frozen().count());
    if (are_held && were_frozen) {
        log_info("The file systems on the disks of a mark were frozen for %lld ms", ms);
        return freeze_result::held;
    }
    if (!are_held)
        *why = escaped(mirrors.guids[holds->size()]) + " was not level within " + std::to_string(ms) +
               " ms in which its file systems were frozen";
    holds->clear();
    return freeze_result::failed;
}
