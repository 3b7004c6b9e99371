#include "tools/snapshots/attachment.h"

#include "platform/linux/agent/snapshot_acts.h"
#include "tools/volumes/host_view.h"

#include <chrono>
#include <thread>

namespace {
constexpr std::chrono::seconds detach_limit{5};
constexpr std::chrono::milliseconds detach_pause{100};
} // namespace

std::optional<attached_snapshot> attach_if_needed(const std::string &name, std::string *why)
{
    auto found = look_at_snapshot(name, why);
    if (!found)
        return std::nullopt;
    attached_snapshot one;
    one.was_attached = found->state == snapshot_state::attached;
    one.record = std::move(found->record);
    if (!attach_snapshot(name, &one.devices, why))
        return std::nullopt;
    return one;
}

bool detach_patiently(const std::string &name, std::string *why)
{
    const auto end = std::chrono::steady_clock::now() + detach_limit;
    while (!detach_snapshot(name, why)) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(detach_pause);
    }
    return true;
}

std::string disk_title(const std::string &guid)
{
    for (const known_disk &disk : known_disks().value_or(std::vector<known_disk>{})) {
        if (disk.guid == guid)
            return disk.facts.name;
    }
    return guid;
}
