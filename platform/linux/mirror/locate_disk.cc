#include "platform/linux/mirror/locate_disk.h"

#include "base/deleter.h"
#include "kavdisk.h"
#include "platform/linux/devices/scsi_guid.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr size_t page = 4096;
constexpr int claim_attempts = 25;
constexpr useconds_t claim_pause_us = 4000;

class device_list {
public:
    device_list()
    {
        kav_list_init(&head_);
        errno = 0;
        result_ = kavdisk_get_devs(&head_, 0);
        error_ = errno;
    }
    ~device_list() { kavdisk_free_devs(&head_); }
    device_list(const device_list &) = delete;
    device_list &operator=(const device_list &) = delete;

    bool is_complete() const
    {
        if (result_ != 0 && error_ == ENOMEM)
            throw std::bad_alloc();
        return result_ == 0;
    }

    template <class Action>
    void for_each(Action action) const
    {
        for (const kav_list *link = head_.next; link != &head_; link = link->next)
            action(*kav_list_entry(link, const kavdisk_dev, link));
    }

private:
    kav_list head_{};
    int result_ = -1;
    int error_ = 0;
};

std::string folder_of(const std::string &name)
{
    return "/sys/block/" + name;
}

std::string sequence_of(const std::string &name)
{
    return read_attribute(folder_of(name) + "/diskseq").value_or("");
}

std::optional<std::string> read_signature_guid(int fd)
{
    // Aligned, since the descriptor may be for direct I/O.
    const std::unique_ptr<void, deleter<free>> first(aligned_alloc(page, page));
    if (!first)
        throw std::bad_alloc();
    if (pread(fd, first.get(), page, 0) != page)
        return std::nullopt;
    return guid_of_signature(signature_in(static_cast<const char *>(first.get())));
}

std::optional<std::string> guid_of(const located_disk &disk)
{
    if (disk.is_storage_volume)
        return read_scsi_guid(folder_of(disk.name));
    const unique_fd fd(open(disk.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return fd.is_open() ? read_signature_guid(fd.get()) : std::nullopt;
}

std::vector<located_disk> disks_of(const device_list &devices, const std::string &guid)
{
    std::vector<located_disk> found;
    devices.for_each([&](const kavdisk_dev &device) {
        if (!device.name || !device.path || device.sectors == 0 || device.sectors > INT64_MAX / 512)
            return;
        located_disk disk = {guid,
                             device.name,
                             device.path,
                             sequence_of(device.name),
                             device.sectors * 512,
                             device.state != 0,
                             is_storage_volume(device.vendor, device.model)};
        if (guid_of(disk) == guid)
            found.push_back(std::move(disk));
    });
    return found;
}

bool is_that_device(int fd, const located_disk &disk)
{
    struct stat node {};
    const auto device = read_attribute(folder_of(disk.name) + "/dev");
    return device && fstat(fd, &node) == 0 && S_ISBLK(node.st_mode) &&
           node.st_rdev == parse_device_number(*device);
}

// The disk library claims a disk for a moment when it checks it, so retry.
unique_fd open_patiently(const located_disk &disk, int flags)
{
    for (int attempt = 1;; attempt++) {
        unique_fd fd(open(disk.path.c_str(), flags | O_DIRECT | O_CLOEXEC));
        if (fd.is_open() || errno != EBUSY || attempt == claim_attempts)
            return fd;
        usleep(claim_pause_us);
    }
}

// Checks the identity through the opened descriptor where possible: a name may be given to another disk at
// any time.
unique_fd open_that_disk(const located_disk &disk, int flags, std::string *why)
{
    unique_fd fd = open_patiently(disk, flags);
    if (!fd.is_open()) {
        *why = errno == EBUSY ? "it is mounted or in use" : strerror(errno);
        return fd;
    }
    const auto guid =
        disk.is_storage_volume ? read_scsi_guid(folder_of(disk.name)) : read_signature_guid(fd.get());
    if (is_that_device(fd.get(), disk) && guid == disk.guid)
        return fd;
    *why = disk.path + " is not that disk any more";
    return unique_fd();
}

} // namespace

std::optional<located_disk> locate_disk(const std::string &guid, std::string *why)
{
    const device_list devices;
    const bool is_complete = devices.is_complete();
    auto found = disks_of(devices, guid);
    const auto usable = [](const located_disk &disk) { return disk.is_usable; };
    if (std::any_of(found.begin(), found.end(), usable))
        std::erase_if(found, std::not_fn(usable));
    if (found.size() == 1)
        return found.front();
    if (!found.empty())
        *why = "there are several disks with this GUID";
    else
        *why = is_complete ? "there is no such disk" : "the disks of this host cannot be listed";
    return std::nullopt;
}

bool is_still_there(const located_disk &disk)
{
    const auto sectors = read_number(folder_of(disk.name) + "/size");
    return sectors && *sectors == disk.size / 512 && sequence_of(disk.name) == disk.sequence;
}

unique_fd open_source(const located_disk &disk, std::string *why)
{
    return open_that_disk(disk, O_RDONLY, why);
}

// A process that was killed has the disk open until its last write has ended, and so none of its writes can
// fall upon a later one of ours: until then this open fails.
unique_fd open_mirror(const located_disk &disk, std::string *why)
{
    unique_fd fd = open_that_disk(disk, O_RDWR | O_EXCL, why);
    int is_read_only = 1;
    if (fd.is_open() && (ioctl(fd.get(), BLKROGET, &is_read_only) != 0 || is_read_only != 0)) {
        *why = strerror(EROFS);
        return unique_fd();
    }
    return fd;
}

uint64_t logical_block(int fd)
{
    int size = 0;
    return ioctl(fd, BLKSSZGET, &size) == 0 && size > 0 ? static_cast<uint64_t>(size) : 0;
}

std::optional<disk_signature> signature_to_keep(const located_disk &disk)
{
    if (disk.is_storage_volume)
        return std::nullopt;
    return signature_of_guid(disk.guid);
}
