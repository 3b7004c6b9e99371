#include "kavdisk.h"

#include "base/deleter.h"
#include "base/fd.h"
#include "platform/linux/disks/content.h"
#include "platform/linux/disks/disk_node.h"
#include "platform/linux/disks/host_disks.h"
#include "platform/linux/disks/signature_rule.h"
#include "platform/linux/host/allocate.h"
#include "platform/linux/host/boundary.h"
#include "platform/linux/host/mountinfo.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

constexpr uint32_t state_left_alone = 0;
constexpr uint32_t state_usable = 1;
constexpr int with_partitions = 1;

void free_part(kavdisk_part *part)
{
    free(part->name);
    free(part->guid);
    free(part->fs);
    free(part);
}

void free_dev(kavdisk_dev *dev)
{
    while (!kav_list_empty(&dev->parts)) {
        kav_list *link = dev->parts.next;
        kav_list_unlink(link);
        free_part(kav_list_entry(link, kavdisk_part, link));
    }
    free(dev->name);
    free(dev->vendor);
    free(dev->model);
    free(dev->path);
    free(dev);
}

using dev_record = std::unique_ptr<kavdisk_dev, deleter<free_dev>>;

char *copy_of(const std::optional<std::string> &text)
{
    return text ? text_copy(*text) : nullptr;
}

// Two entries may begin at the same sector if a partition has its own table.
std::optional<std::string> guid_of(const std::vector<table_entry> &table, const partition_facts &partition)
{
    std::optional<std::string> guid;
    for (const table_entry &entry : table) {
        if (entry.start != partition.start || entry.guid.empty())
            continue;
        if (!guid || entry.number == partition.number)
            guid = entry.guid;
    }
    return guid;
}

std::optional<std::string> file_system_of(int fd, const partition_facts &partition)
{
    constexpr uint64_t largest = INT64_MAX / 512;
    if (fd < 0 || partition.start > largest || partition.sectors > largest)
        return std::nullopt;
    const uint64_t offset = partition.start * 512;
    const uint64_t length = partition.sectors * 512;
    // The partition's node has its own page cache. Cached pages of the whole disk do not show what was
    // written through the partition, so they are dropped.
    posix_fadvise(fd, static_cast<off_t>(offset), static_cast<off_t>(length), POSIX_FADV_DONTNEED);
    return read_file_system(fd, offset, length);
}

void append_part(kavdisk_dev *dev, int fd, const std::vector<table_entry> &table,
                 const partition_facts &partition, const std::vector<mount_record> &mounts)
{
    auto *part = zeroed<kavdisk_part>();
    kav_list_append(&dev->parts, &part->link); // first, so that it is freed with the device whatever happens
    part->name = copy_of(partition.name);
    part->guid = copy_of(guid_of(table, partition));
    part->fs = copy_of(file_system_of(fd, partition));
    part->size = partition.sectors * 512;
    part->used = used_bytes(mounts, partition.device);
}

void append_parts(kavdisk_dev *dev, const disk_facts &disk, const std::vector<mount_record> &mounts)
{
    if (disk.partitions.empty())
        return;
    const unique_fd node = open_node(disk);
    if (!node.is_open())
        log_warning("Cannot look into the partitions of disk %s", disk.path.c_str());
    const auto table = node.is_open() ? read_table(node.get()) : std::vector<table_entry>{};
    for (const partition_facts &partition : disk.partitions)
        append_part(dev, node.get(), table, partition, mounts);
}

dev_record make_dev(const disk_facts &disk, const std::vector<mount_record> &mounts, int flag)
{
    auto *fresh = zeroed<kavdisk_dev>();
    kav_list_init(&fresh->parts);
    dev_record dev(fresh);
    dev->name = copy_of(disk.name);
    dev->vendor = copy_of(disk.vendor);
    dev->model = copy_of(disk.model);
    dev->path = copy_of(disk.path);
    dev->sectors = disk.sectors;
    dev->state =
        objection_to_report(disk, mounts) == signature_objection::none ? state_usable : state_left_alone;
    if (flag == with_partitions)
        append_parts(dev.get(), disk, mounts);
    return dev;
}

int append_devs(kav_list *devs, int flag)
{
    if (!devs)
        return -1;
    const auto names = host_disk_names();
    if (!names) {
        log_error("Cannot list /sys/block: %s", strerror(errno));
        return -1;
    }
    const auto mounts = read_mounts();
    // All or nothing: a disk that is left out would be taken for one that is not there.
    std::vector<dev_record> found;
    for (const std::string &name : *names) {
        if (const auto disk = read_disk(name))
            found.push_back(make_dev(*disk, mounts, flag));
        else
            log_warning("Disk %s went away while it was looked at", name.c_str());
    }
    for (dev_record &dev : found)
        kav_list_append(devs, &dev.release()->link);
    return 0;
}

uint32_t part_type_of(const char *path)
{
    const unique_fd disk(path ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1);
    if (!disk.is_open()) {
        log_error("Cannot read the partition table of %s: %s", path ? path : "(null)",
                  path ? strerror(errno) : "no path");
        return 0;
    }
    const table_type type = read_table_type(disk.get());
    if (type == table_type::mbr)
        return 1;
    return type == table_type::gpt ? 2 : 0;
}

} // namespace

EXPORTED int kavdisk_get_devs(kav_list *devs, int flag)
{
    return result_of(__func__, -1, [&] { return append_devs(devs, flag); });
}

EXPORTED void kavdisk_free_devs(kav_list *devs)
{
    while (devs && !kav_list_empty(devs)) {
        kav_list *link = devs->next;
        kav_list_unlink(link);
        free_dev(kav_list_entry(link, kavdisk_dev, link));
    }
}

EXPORTED uint32_t get_part_type(const char *path)
{
    return result_of(__func__, uint32_t{0}, [&] { return part_type_of(path); });
}
