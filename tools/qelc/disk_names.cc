#include "tools/qelc/disk_names.h"

#include "platform/linux/host/sysfs.h"
#include "tools/volumes/host_view.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>

namespace {
constexpr size_t shortest_beginning = 2; // of a GUID

void add(std::vector<named_disk> &known, const std::string &name, const std::string &guid,
         bool is_partition = false)
{
    if (guid.empty())
        return;
    const auto same = std::ranges::find(known, guid, &named_disk::guid);
    if (same == known.end() || (same->name != name && !name.empty() && same->name != guid))
        known.push_back({name.empty() ? guid : name, guid, is_partition});
    else if (same->name == guid && !name.empty())
        same->name = name;
}

std::string kernel_name(const std::string &text, bool local)
{
    char real[PATH_MAX];
    if (text.find('/') == std::string::npos)
        return text;
    return disk_name_of(local && realpath(text.c_str(), real) ? real : text);
}

bool begins_with(const std::string &guid, const std::string &text)
{
    return text.size() >= shortest_beginning && strncasecmp(guid.c_str(), text.c_str(), text.size()) == 0;
}

template <class Fits>
std::vector<named_disk> those(const std::vector<named_disk> &known, Fits fits)
{
    std::vector<named_disk> found;
    for (const named_disk &one : known) {
        if (fits(one) && std::ranges::find(found, one.guid, &named_disk::guid) == found.end())
            found.push_back(one);
    }
    return found;
}
} // namespace

std::vector<named_disk> names_of_disks(const std::vector<disk_view> &disks,
                                       const std::vector<mirror_view> &mirrors, bool local)
{
    std::vector<named_disk> known;
    for (const disk_view &disk : disks) {
        add(known, disk.name, disk.guid);
        for (const partition_view &part : disk.partitions)
            add(known, part.name, part.guid, true);
    }
    for (const mirror_view &mirror : mirrors) {
        add(known, mirror.disk, mirror.guids.source);
        add(known, "", mirror.guids.mirror);
    }
    const auto here = local ? known_disks() : std::nullopt;
    for (const known_disk &disk : here.value_or(std::vector<known_disk>{})) {
        const auto same = std::ranges::find_if(known, [&](const named_disk &one) {
            return strcasecmp(one.guid.c_str(), disk.guid.c_str()) == 0;
        });
        if (same != known.end() && same->name == same->guid)
            same->name = disk.facts.name;
    }
    return known;
}

void add_guids(std::vector<named_disk> &known, const std::vector<std::string> &guids)
{
    for (const std::string &guid : guids)
        add(known, "", guid);
}

std::vector<named_disk> disks_meant(const std::vector<named_disk> &known, const std::string &text, bool local)
{
    auto found = those(known, [&](const named_disk &one) { return one.guid == text; });
    if (found.empty())
        found = those(known,
                      [&](const named_disk &one) { return strcasecmp(one.guid.c_str(), text.c_str()) == 0; });
    if (found.empty()) {
        const std::string name = kernel_name(text, local);
        found = those(known, [&](const named_disk &one) { return one.name == name; });
    }
    for (const bool is_partition : {false, true}) {
        if (found.empty())
            found = those(known, [&](const named_disk &one) {
                return one.is_partition == is_partition && begins_with(one.guid, text);
            });
    }
    return found;
}

bool is_guid(const std::string &text)
{
    constexpr std::string_view form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    return std::ranges::equal(text, form, [](char one, char wanted) {
        return wanted == 'x' ? isxdigit(static_cast<unsigned char>(one)) != 0 : one == wanted;
    });
}
