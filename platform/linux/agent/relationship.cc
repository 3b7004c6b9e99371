#include "platform/linux/agent/relationship.h"

#include "base/deleter.h"
#include "base/exceptions.h"
#include "platform/linux/agent/level_holds.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/level_hold.h"
#include "platform/linux/state/mirror_hold.h"
#include "platform/linux/state/settings.h"
#include "platform/linux/state/text.h"
#include "tw.h"

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <set>
#include <thread>

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds time_limit{30};
constexpr std::chrono::milliseconds pause_between_looks{200};

template <size_t Size>
std::string text_of(const char (&text)[Size])
{
    return std::string(text, strnlen(text, Size));
}

const tw_relationship *find_mirror(const tw_relationship *chain, const std::string &guid)
{
    while (chain && text_of(chain->dest_guid) != guid)
        chain = chain->next;
    return chain;
}

bool is_level(const tw_relationship &relationship)
{
    return text_of(relationship.sync_state) == "Sync Finished" && text_of(relationship.src_link) == "Up" &&
           text_of(relationship.dest_link) == "Up";
}

using relationship_chain = std::unique_ptr<tw_relationship, deleter<tw_disk_stat_release>>;

// Another library may take the place of tw_disk_stat while the embedded one is loaded, too.
bool are_in_one_library(const void *one, const void *other)
{
    Dl_info first{}, second{};
    return dladdr(one, &first) != 0 && dladdr(other, &second) != 0 && first.dli_fbase == second.dli_fbase;
}

relationship_chain relationships_now()
{
    const bool is_embedded =
        tw_disk_stat_now && are_in_one_library(reinterpret_cast<const void *>(&tw_disk_stat_now),
                                               reinterpret_cast<const void *>(&tw_disk_stat));
    return relationship_chain((is_embedded ? tw_disk_stat_now : tw_disk_stat)(nullptr));
}

enum class outcome { level, behind, no_relationship };

// Sets WHY to the mirror that is not level.
outcome look(const std::vector<std::string> &guids, std::vector<marked_device> *mirrors, std::string *why)
{
    errno = 0;
    const relationship_chain chain = relationships_now();
    if (!chain)
        throw_if_memory_ran_out();
    outcome result = outcome::level;
    mirrors->clear();
    for (const std::string &guid : guids) {
        const tw_relationship *found = find_mirror(chain.get(), guid);
        if (!found) {
            *why = escaped(guid) + " is no mirror of a disk of this host";
            return outcome::no_relationship;
        }
        if (!is_level(*found)) {
            *why = escaped(guid) + " is not level with its disk";
            result = outcome::behind;
        }
        mirrors->push_back(
            {guid, text_of(found->dest_path), text_of(found->src_guid), text_of(found->src_path)});
    }
    return result;
}

// Another mirror library has no holds, and no folder for them.
bool is_held_or_needs_no_hold(const unique_fd &hold)
{
    return hold.is_open() || errno == ENOENT;
}

// A mirror may have changed before it was held, so it is checked again.
outcome look_and_hold(const std::vector<std::string> &guids, level_mirrors *level, std::string *why)
{
    const outcome first = look(guids, &level->mirrors, why);
    if (first != outcome::level)
        return first;
    unique_fd hold = try_hold_mirrors(guids);
    if (!is_held_or_needs_no_hold(hold)) {
        *why = "the mirrors cannot be held as they are: " + std::string(strerror(errno));
        return outcome::behind;
    }
    const outcome second = look(guids, &level->mirrors, why);
    if (second == outcome::level)
        level->holds.push_back(std::move(hold));
    return second;
}

// For a mirror library that only tells what is level now.
std::optional<level_mirrors> wait_by_looking(const std::vector<std::string> &guids, std::string *why)
{
    const auto end = steady_clock::now() + time_limit;
    for (;;) {
        level_mirrors level;
        const outcome result = look_and_hold(guids, &level, why);
        if (result == outcome::level)
            return level;
        if (result == outcome::no_relationship || steady_clock::now() >= end)
            return std::nullopt;
        std::this_thread::sleep_for(pause_between_looks);
    }
}

// A mirror that has long to go would not be level in the time for which a file system may be frozen.
bool is_near(const tw_relationship &relationship)
{
    constexpr uint32_t percent_nearly_level = 90;
    const std::string state = text_of(relationship.sync_state);
    return (state == "Sync Finished" || state == "Recovery On") &&
           relationship.percent >= percent_nearly_level && text_of(relationship.src_link) == "Up" &&
           text_of(relationship.dest_link) == "Up";
}

// False with the reason in WHY if freezing their disks would be of no use.
bool find_disks(mirrors_to_hold *mirrors, std::string *why)
{
    const relationship_chain chain = relationships_now();
    for (const std::string &guid : mirrors->guids) {
        const tw_relationship *found = find_mirror(chain.get(), guid);
        if (!found || !is_near(*found)) {
            *why = escaped(guid) + " is far behind its disk";
            return false;
        }
        mirrors->disks.push_back(text_of(found->src_path));
        const std::string mirror = disk_name_of(text_of(found->dest_path));
        if (auto file = read_attribute("/sys/block/" + mirror + "/loop/backing_file"))
            mirrors->needed.push_back(std::move(*file));
    }
    return true;
}

// The embedded mirror library holds each mirror itself at its next level. False with errno.
bool hold_all(const std::vector<std::string> &guids, std::vector<unique_fd> *holds, std::string *why)
{
    const auto start = steady_clock::now(), end = start + time_limit;
    const embedded_settings settings = read_settings();
    const std::set<std::string> each(guids.begin(), guids.end());
    mirrors_to_hold mirrors{{each.begin(), each.end()}, {}, {}};
    if (hold_each(mirrors, settings.freeze ? std::min(end, start + settings.freeze_after) : end, holds, why))
        return true;
    if (!settings.freeze || errno != ETIMEDOUT)
        return false;
    std::string obstacle;
    const auto result = find_disks(&mirrors, &obstacle)
                            ? hold_in_freeze(mirrors, settings.freeze_deadline, holds, &obstacle)
                            : freeze_result::not_done;
    if (result == freeze_result::failed)
        *why = obstacle;
    if (result != freeze_result::not_done)
        return result == freeze_result::held;
    log_warning("Nothing is frozen for a mark that waits for %s: %s",
                escaped(mirrors.guids[holds->size()]).c_str(), obstacle.c_str());
    return hold_each(mirrors, end, holds, why);
}

} // namespace

std::optional<level_mirrors> wait_until_level(const std::vector<std::string> &guids, std::string *why)
{
    level_mirrors level;
    const outcome first = look(guids, &level.mirrors, why);
    if (first == outcome::no_relationship)
        return std::nullopt;
    if (!tw_hold_at_level)
        return wait_by_looking(guids, why);
    if (hold_all(guids, &level.holds, why))
        return level;
    return errno == ENOTSUP ? wait_by_looking(guids, why) : std::nullopt;
}
