#include "platform/linux/disks/signature_rule.h"

#include "platform/linux/devices/disk_signature.h"
#include "platform/linux/devices/scsi_guid.h"
#include "platform/linux/disks/content.h"
#include "platform/linux/disks/disk_node.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/state/mirror_hold.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

namespace {

// libblkid does not look for RAID members on disks up to the size of a floppy, so they never count as blank.
constexpr uint64_t floppy_sectors = 2880;

constexpr int claim_attempts = 5;
constexpr useconds_t claim_pause_us = 2000;

signature_objection objection_to_kind(const disk_facts &disk)
{
    using enum signature_objection;
    const bool is_composed =
        access((disk.folder + "/dm").c_str(), F_OK) == 0 || access((disk.folder + "/md").c_str(), F_OK) == 0;
    const auto holders = list_folder(disk.folder + "/holders");
    if (disk.sectors <= floppy_sectors)
        return disk.sectors == 0 ? empty : too_small;
    if (is_composed)
        return composed;
    if (!holders || !holders->empty())
        return holders ? held : unreadable;
    if (read_number(disk.folder + "/ro") != 0U)
        return read_only;
    return read_number(disk.folder + "/removable") == 0U ? none : removable;
}

// A blank disk may still be in use, e.g. by a database that is about to fill it. If it is opened exclusively,
// another exclusive open fails (open(2), O_EXCL). This check itself claims the disk for a moment. The mutex
// keeps two checks of one process from seeing each other; the retries do so for another process.
bool is_unclaimed(const disk_facts &disk)
{
    static std::mutex one_check_at_a_time;
    const std::scoped_lock lock(one_check_at_a_time);
    for (int attempt = 0; attempt < claim_attempts; attempt++) {
        const unique_fd claim(open(disk.path.c_str(), O_RDONLY | O_CLOEXEC | O_EXCL));
        if (claim.is_open())
            return true;
        if (errno != EBUSY)
            return false;
        usleep(claim_pause_us);
    }
    return false;
}

bool first_sector_is_empty(int fd)
{
    int sector_size = 512;
    if (ioctl(fd, BLKSSZGET, &sector_size) != 0 || sector_size < 512 || sector_size > 65536)
        return false;
    std::vector<char> sector(static_cast<size_t>(sector_size));
    if (pread(fd, sector.data(), sector.size(), 0) != sector_size)
        return false;
    std::fill_n(sector.begin() + signature_offset, sizeof(disk_signature), '\0');
    return std::all_of(sector.begin(), sector.end(), [](char byte) { return byte == '\0'; });
}

// True if the claim on the disk is that of the embedded mirrors.
bool is_claimed_mirror(int fd)
{
    char first[512];
    if (pread(fd, first, sizeof first, 0) != sizeof first)
        return false;
    const auto guid = guid_of_signature(signature_in(first));
    return guid && is_mirror_in_use(*guid);
}

signature_objection objection_to_content(int fd, const disk_facts &disk)
{
    using enum signature_objection;
    const auto content = read_content(fd);
    if (!content || content->superblock)
        return content ? superblock : ambiguous;
    if (content->table != table_type::none)
        return content->table == table_type::other ? other_table : none;
    if (!disk.partitions.empty() || !first_sector_is_empty(fd))
        return unknown_data;
    return is_claimed_mirror(fd) || is_unclaimed(disk) ? none : claimed;
}

// Both must be known, since the daemon recognises such a volume by them.
bool is_volume(const disk_facts &disk)
{
    return disk.sectors > 0 && disk.vendor && disk.model &&
           is_storage_volume(disk.vendor->c_str(), disk.model->c_str());
}

} // namespace

signature_objection objection_to_signature(const disk_facts &disk, const std::vector<mount_record> &mounts)
{
    const bool is_mounted = std::any_of(mounts.begin(), mounts.end(), [&disk](const mount_record &mount) {
        return mounts_device(mount, disk.device);
    });
    if (is_mounted)
        return signature_objection::mounted;
    const signature_objection objection = objection_to_kind(disk);
    if (objection != signature_objection::none)
        return objection;
    const unique_fd node = open_node(disk);
    return node.is_open() ? objection_to_content(node.get(), disk) : signature_objection::unreadable;
}

signature_objection objection_to_report(const disk_facts &disk, const std::vector<mount_record> &mounts)
{
    return is_volume(disk) ? signature_objection::none : objection_to_signature(disk, mounts);
}
