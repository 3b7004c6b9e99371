#include "tools/qelc/health/missing_disk.h"

#include "tools/volumes/host_view.h"

#include <algorithm>

std::string why_missing(const std::string &path, const std::string &guid)
{
    const auto disks = known_disks().value_or(std::vector<known_disk>{});
    const auto found = std::ranges::find(disks, path, [](const known_disk &one) { return one.facts.path; });
    if (found == disks.end())
        return path + " is not there";
    return found->guid == guid ? "" : path + " has another signature (" + found->guid + ")";
}
