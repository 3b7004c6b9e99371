#include "client/disks.h"

#include "base/exceptions.h"
#include "base/log.h"
#include "client/disk_identity.h"
#include "client/relationship_chain.h"

#include <kavdisk.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace {
constexpr unsigned sector_shift = 9; // the library counts in sectors of 512 bytes

// The devices that the library lists; the destructor releases them. A list that cannot be read counts as
// empty, unless memory ran out: the disks are still there.
struct device_list {
    kav_list head{};
    int error = 0;
    explicit device_list(int flag)
    {
        kav_list_init(&head);
        errno = 0;
        if (kavdisk_get_devs(&head, flag) < 0)
            error = errno;
    }
    device_list(const device_list &) = delete;
    device_list &operator=(const device_list &) = delete;
    ~device_list() { kavdisk_free_devs(&head); }
};

std::string_view trimmed(const char *text)
{
    std::string_view rest = text;
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    return rest.substr(0, rest.find_last_not_of(' ') + 1);
}

void set_vendor(qel_disk_t &disk, const kavdisk_dev &device)
{
    if (!device.vendor || !device.model)
        return;
    const std::string_view vendor = trimmed(device.vendor);
    const std::string_view model = trimmed(device.model);
    disk.vendor = std::string(vendor) + " " + std::string(model);
    disk.is_lun = model == "KAVSolution" || vendor == "QRZ";
}

void copy_parts(qel_disk_t &disk, const kavdisk_dev &device)
{
    for (const kav_list *link = device.parts.next; link != &device.parts; link = link->next) {
        const auto *from = kav_list_entry(link, const kavdisk_part, link);
        qel_part_t *part = list_append(disk.parts);
        if (!part) {
            log_error("Failed to allocate memory");
            continue;
        }
        part->name = optional_copy(from->name);
        part->guid = optional_copy(from->guid);
        part->fs = optional_copy(from->fs);
        part->size = from->size;
        part->used = from->used;
    }
}

void fill_disk(qel_disk_t &disk, const kavdisk_dev &device)
{
    disk.name = device.name;
    disk.path = optional_copy(device.path);
    disk.size = device.sectors << sector_shift;
    disk.state = static_cast<int32_t>(device.state);
    set_vendor(disk, device);
    if (disk.state != 0)
        disk.guid = get_disk_guid(c_text(disk.path), disk.is_lun != 0);
    copy_parts(disk, device);
}

uint32_t backup_state(const tw_relationship &relationship)
{
    const std::string_view sync = relationship.sync_state;
    uint32_t state = backup_synchronised;
    if (sync == "Sync Cancelled" || sync == "UnSync")
        state = backup_not_synchronised;
    else if (sync == "Sync On")
        state = backup_synchronising;
    else if (sync == "Recovery On")
        state = backup_recovering;

    if (std::string_view(relationship.src_link) != "Up")
        return backup_source_down;
    if (std::string_view(relationship.dest_link) != "Up")
        return backup_destination_down;
    return state;
}

// The device name of a path without its first five characters, "/dev/".
std::string device_name(const char *path)
{
    char name[sizeof tw_relationship::src_path] = "";
    sscanf(path, "%*5s%63s", name);
    return name;
}

void fill_backup(qel_backup_t &backup, const tw_relationship &relationship)
{
    backup.state = backup_state(relationship);
    backup.percent = relationship.percent > 100 ? 0 : static_cast<int32_t>(relationship.percent);
    backup.src_guid = relationship.src_guid;
    backup.dest_guid = relationship.dest_guid;
    backup.src_name = device_name(relationship.src_path);
}

void copy_schedule(qel_backup_t &backup, const qel_t *client)
{
    const auto &schedules = client->cdpsch_list;
    const auto schedule = std::find_if(schedules.begin(), schedules.end(), [&](const qel_cdpsch &entry) {
        return entry.mirror_lun == backup.dest_guid;
    });
    if (schedule == schedules.end())
        return;
    backup.start_time = schedule->cdp_con_start_time;
    backup.next_time = schedule->cdp_start_time;
    backup.interval = schedule->cdp_timeout;
}

bool is_mirror(const qel_disk_t &disk, const std::list<qel_backup_t> &backups)
{
    return std::any_of(backups.begin(), backups.end(),
                       [&](const qel_backup_t &backup) { return disk.guid == backup.dest_guid; });
}
} // namespace

int qel_get_disks(std::list<qel_disk_t> *list, int flag)
{
    if (!list)
        return -1;
    log_debug("start kavdisk_get_devs.");
    const device_list devices(flag);
    log_debug("finish kavdisk_get_devs.");
    if (devices.error == ENOMEM)
        throw std::bad_alloc();
    for (const kav_list *link = devices.head.next; link != &devices.head; link = link->next) {
        const auto *device = kav_list_entry(link, const kavdisk_dev, link);
        if (!device->name)
            continue;
        if (!device->path) {
            log_warning("Disk %s has no path, it is passed over.", device->name);
            continue;
        }
        log_debug("[QEL_GET_DISKS]: Found disk %s.", device->path);
        qel_disk_t *disk = list_append(*list);
        if (!disk) {
            log_error("Failed to allocate memory");
            break;
        }
        fill_disk(*disk, *device);
    }
    return 0;
}

int qel_get_part_type_lock(std::list<qel_disk_t> &disks, const std::list<qel_backup_t> &backups,
                           std::mutex *mutex)
{
    for (qel_disk_t &disk : disks) {
        if (disk.state == 0 || !disk.guid)
            continue;
        {
            std::unique_lock<std::mutex> held;
            if (mutex)
                held = std::unique_lock(*mutex);
            if (is_mirror(disk, backups))
                continue;
        }
        log_debug("start get part type.");
        disk.type = get_part_type(c_text(disk.path));
        log_debug("finish get part type.");
    }
    return 0;
}

int qel_get_backups_lock(const qel_t *client, std::list<qel_backup_t> &list, std::mutex &client_lock)
{
    log_debug("Start load all backup relationships from twinvault.");
    const relationship_chain chain;
    log_debug("Finished load all backup relationships from twinvault.");
    for (const tw_relationship *entry = chain.first; entry; entry = entry->next) {
        if (std::string_view(entry->status) == "Stopped")
            continue;
        qel_backup_t *backup = list_append(list);
        if (!backup) {
            log_error("Failed to allocate memory");
            return -1;
        }
        fill_backup(*backup, *entry);
        const std::lock_guard held(client_lock);
        copy_schedule(*backup, client);
    }
    return 0;
}
