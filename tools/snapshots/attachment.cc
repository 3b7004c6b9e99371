#include "tools/snapshots/attachment.h"

#include "tools/volumes/host_view.h"

#include <chrono>
#include <thread>

namespace {
constexpr std::chrono::seconds detach_limit{5};
constexpr std::chrono::milliseconds detach_pause{100};
} // namespace

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

std::map<std::string, std::string> disk_titles()
{
    std::map<std::string, std::string> titles;
    for (const known_disk &disk : known_disks().value_or(std::vector<known_disk>{})) {
        if (!disk.guid.empty())
            titles.emplace(disk.guid, disk.facts.name);
    }
    return titles;
}

std::string disk_title(const std::string &guid)
{
    const auto titles = disk_titles();
    const auto found = titles.find(guid);
    return found == titles.end() ? guid : found->second;
}
