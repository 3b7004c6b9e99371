#include "jobs/device_group.h"

#include "base/log.h"
#include "client/inventory.h"
#include "client/mirror_guid.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {
void free_device(Kavdev *device)
{
    free(device->path);
    free(device);
}
using device = std::unique_ptr<Kavdev, deleter<free_device>>;

// Null for an absent text.
char *malloc_copy(const optional_text &text)
{
    char *copy = text ? strdup(text->c_str()) : nullptr;
    if (text && !copy)
        throw std::bad_alloc();
    return copy;
}

device_group new_group(const qel_group &from)
{
    device_group group(static_cast<Kavdevgrp *>(calloc(1, sizeof(Kavdevgrp))));
    if (!group) {
        log_error("Failed to allocation memory for Kavdevgrp.");
        return nullptr;
    }
    kav_list_init(&group->devices);
    log_info("Start to convert backup group to kav device group.");
    group->name = malloc_copy(from.name);
    return group;
}

// "{GUID}" of the disk's mirror; absent after a log line.
optional_text braced_mirror(const qel_group_disk &member)
{
    log_info("Found member disk: %s.", printable(member.disk_guid));
    const optional_text mirror = get_mirror_guid_of_local(c_text(member.disk_guid), &g_inventory);
    if (!mirror) {
        log_error("Failed to get mirror GUID of disk %s.", printable(member.disk_guid));
        return std::nullopt;
    }
    std::string braced = "{" + *mirror + "}";
    if (braced.size() >= sizeof Kavdev::guid) {
        log_error("Mirror GUID %s is longer than the CDP agent takes.", mirror->c_str());
        return std::nullopt;
    }
    log_info("Brace-enclosed GUID %s generated.", braced.c_str());
    return braced;
}

device new_device(const std::string &braced, const qel_disk_t &disk)
{
    device added(static_cast<Kavdev *>(calloc(1, sizeof(Kavdev))));
    if (!added) {
        log_error("Failed to allocate memory for Kavdev.");
        return nullptr;
    }
    memcpy(added->guid, braced.c_str(), braced.size() + 1);
    added->flag = 1;
    added->path = malloc_copy(disk.path);
    return added;
}

bool is_that_disk(const qel_disk_t &disk, const std::string &braced)
{
    if (disk.guid)
        return "{" + *disk.guid + "}" == braced;
    log_warning("Disk anomaly detected, GUID of disk %s is null.", printable(disk.name));
    return false;
}

bool add_mirror(Kavdevgrp &group, const qel_group_disk &member)
{
    const optional_text braced = braced_mirror(member);
    if (!braced)
        return false;
    for (const qel_disk_t &disk : g_inventory.disks) {
        if (!is_that_disk(disk, *braced))
            continue;
        device added = new_device(*braced, disk);
        if (!added)
            return false;
        log_info("Disk %s (%s) is dumped into kav device group %s.", added->guid, printable(disk.path),
                 group.name ? group.name : "(null)");
        kav_list_append(&group.devices, &added.release()->link);
    }
    return true;
}
} // namespace

void free_device_group(Kavdevgrp *group)
{
    while (!kav_list_empty(&group->devices)) {
        device last(kav_list_entry(group->devices.prev, Kavdev, link));
        kav_list_unlink(&last->link);
    }
    free(group->name);
    free(group);
}

device_group _bkup_grp_to_cdp_kavgrp(const qel_group *group)
{
    if (!group) {
        log_error("Error: Unable to convert null backup group.");
        return nullptr;
    }
    device_group converted = new_group(*group);
    if (!converted)
        return nullptr;
    const auto held = qel_inventory_lock();
    for (const qel_group_disk &member : group->member_list) {
        if (!add_mirror(*converted, member))
            return nullptr;
    }
    log_info("Conversion complete.");
    return converted;
}
