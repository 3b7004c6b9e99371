#include "platform/linux/signature_rule.h"

#include "platform/linux/content.h"
#include "platform/linux/disk_node.h"
#include "platform/linux/disk_signature.h"
#include "platform/linux/mirror_hold.h"
#include "platform/linux/sysfs.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

namespace {

// libblkid does not look for RAID members on anything that could be a floppy, so blank means nothing there.
constexpr uint64_t floppy_sectors = 2880;

constexpr int claim_attempts = 5;
constexpr useconds_t claim_pause_us = 2000;

bool is_plain_disk(const disk_facts &disk)
{
    const bool composed =
        access((disk.folder + "/dm").c_str(), F_OK) == 0 || access((disk.folder + "/md").c_str(), F_OK) == 0;
    const auto holders = list_folder(disk.folder + "/holders");
    return disk.sectors > floppy_sectors && !composed && holders && holders->empty() &&
           read_number(disk.folder + "/ro") == 0U && read_number(disk.folder + "/removable") == 0U;
}

// A blank disk may be in use all the same, e.g. by a database that is about to fill it. Whoever holds a block
// device exclusively makes another exclusive open fail (open(2), O_EXCL). The claim of this check lasts for a
// moment only, but two checks at once would take each other for an owner: hence the mutex, and, for a second
// process that asks, the repetition.
bool is_unclaimed(const disk_facts &disk)
{
    static std::mutex one_check_at_a_time;
    const std::scoped_lock lock(one_check_at_a_time);
    for (int attempt = 0; attempt < claim_attempts; attempt++) {
        const int fd = open(disk.path.c_str(), O_RDONLY | O_CLOEXEC | O_EXCL);
        if (fd >= 0) {
            close(fd);
            return true;
        }
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

// The claim on a mirror that is being copied to is that of the embedded mirrors: nobody else has the disk.
bool is_mirror_at_work(int fd)
{
    char first[512];
    if (pread(fd, first, sizeof first, 0) != sizeof first)
        return false;
    const auto guid = guid_of_signature(signature_in(first));
    return guid && is_mirror_held(*guid);
}

bool content_allows_signature(int fd, const disk_facts &disk)
{
    const auto content = read_content(fd);
    if (!content || content->superblock)
        return false;
    if (content->table != table_type::none)
        return content->table != table_type::other;
    return disk.partitions.empty() && first_sector_is_empty(fd) &&
           (is_mirror_at_work(fd) || is_unclaimed(disk));
}

} // namespace

bool may_carry_signature(const disk_facts &disk, const std::vector<mount_record> &mounts)
{
    const bool mounted = std::any_of(mounts.begin(), mounts.end(), [&disk](const mount_record &mount) {
        return mounts_device(mount, disk.device);
    });
    if (mounted || !is_plain_disk(disk))
        return false;
    const int fd = open_node(disk);
    if (fd < 0)
        return false;
    const bool allowed = content_allows_signature(fd, disk);
    close(fd);
    return allowed;
}
