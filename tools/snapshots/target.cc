#include "tools/snapshots/target.h"

#include "platform/linux/agent/restores.h"
#include "platform/linux/devices/scsi_guid.h"
#include "platform/linux/host/mountinfo.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/mirror/block_copy.h"
#include "platform/linux/state/mirror_hold.h"
#include "tools/common/human_text.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

namespace {
constexpr std::chrono::milliseconds claim_pause{10};
constexpr int claim_attempts = 50; // the disk library claims a disk for a moment when it checks it

// Each of these says why the disk must not be overwritten, "" if it may.

std::string kind_objection(const known_disk &disk)
{
    if (read_number(disk.facts.folder + "/ro") != 0U)
        return "it is read-only";
    if (disk.guid.empty())
        return "it has no GUID. qelcd gives one to a disk that is blank or has partitions (qelc "
               "rescan_devices), but to none "
               "that is made of other devices";
    return "";
}

std::string direction_objection(const known_disk &disk)
{
    const auto sources = sources_by_mirror();
    if (!sources)
        return "the relationships cannot be read";
    const auto found = sources->find(disk.guid);
    return found == sources->end()
               ? ""
               : "it is the mirror of " + disk_title(found->second) +
                     ", and a mirror is not restored, but its disk: --to " + disk_title(found->second);
}

bool is_device_on(const std::string &path, const std::string &disk)
{
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 && S_ISBLK(facts.st_mode) && lies_on(facts.st_rdev, disk);
}

// The snapshots, and the mirrors that they were made of.
std::string place_objection(const attached_snapshot &one, const known_disk &disk)
{
    for (const std::string &device : one.devices) {
        if (is_device_on(device, disk.facts.name))
            return "the snapshot itself lies on it";
    }
    const auto disks = known_disks();
    for (const snapshot_member &member : one.record.members) {
        const auto lies_there = [&](const known_disk &other) {
            return other.guid == member.mirror && lies_on(other.facts.device, disk.facts.name);
        };
        if (!disks || std::ranges::any_of(*disks, lies_there))
            return disks ? "the mirror lies on it of which the snapshot was made"
                         : "the disks cannot be listed";
    }
    return "";
}

std::string first_holder(const std::string &folder)
{
    const auto holders = list_folder(folder + "/holders").value_or(std::vector<std::string>{});
    return holders.empty() ? "" : holders.front();
}

std::string use_objection(const disk_facts &disk)
{
    for (const mount_record &mount : read_mounts()) {
        if (lies_on(mount.device, disk.name))
            return mount.source + " is mounted on " + mount.point + "; unmount it first";
    }
    const std::string swaps = read_attribute("/proc/swaps").value_or("");
    for (const std::string_view line : split(swaps, '\n')) {
        const std::string path(line.substr(0, line.find_first_of(" \t")));
        if (path.starts_with('/') && is_device_on(path, disk.name))
            return path + " is in use as swap; end that with swapoff";
    }
    std::string holder = first_holder(disk.folder);
    for (const partition_facts &partition : disk.partitions)
        holder = holder.empty() ? first_holder(disk.folder + "/" + partition.name) : holder;
    return holder.empty() ? "" : holder + " uses it";
}

std::string size_objection(const restore_target &target)
{
    const uint64_t size = target.disk.facts.sectors * 512;
    if (size < target.size)
        return "it is too small: it has " + size_text(size) + " (" + std::to_string(size) +
               " bytes), the snapshot " + size_text(target.size) + " (" + std::to_string(target.size) +
               " bytes)";
    const uint64_t block = logical_block_of(target.disk.facts);
    if (block > compared_page || target.size % block != 0)
        return "its blocks of " + std::to_string(block) + " bytes do not go with the size of the snapshot";
    return "";
}

// True if the descriptor is that disk, and not another one that has taken over its name. Reads its signature.
bool is_that_disk(const known_disk &disk, int fd, disk_signature *signature)
{
    struct stat node {};
    const std::unique_ptr<void, decltype(&free)> first(aligned_alloc(compared_page, compared_page), free);
    if (!first || fstat(fd, &node) != 0 || node.st_rdev != disk.facts.device ||
        pread(fd, first.get(), compared_page, 0) != static_cast<ssize_t>(compared_page))
        return false;
    *signature = signature_in(static_cast<const char *>(first.get()));
    const auto &facts = disk.facts;
    const bool is_volume =
        facts.vendor && facts.model && is_storage_volume(facts.vendor->c_str(), facts.model->c_str());
    return (is_volume ? read_scsi_guid(facts.folder) : guid_of_signature(*signature)) == disk.guid;
}

std::string claim_disk(restore_target *target)
{
    const disk_facts &disk = target->disk.facts;
    target->lock = try_lock_restore(target->disk.guid);
    if (!target->lock.is_open())
        return errno == EAGAIN ? "another restore to it is running" : strerror(errno);
    for (int attempt = 0; attempt < claim_attempts && !target->fd.is_open(); attempt++) {
        if (attempt > 0)
            std::this_thread::sleep_for(claim_pause);
        target->fd.reset(open(disk.path.c_str(), O_RDWR | O_EXCL | O_DIRECT | O_CLOEXEC));
        if (!target->fd.is_open() && errno != EBUSY)
            break;
    }
    if (!target->fd.is_open())
        return errno == EBUSY ? "another program uses it" : strerror(errno);
    if (!is_that_disk(target->disk, target->fd.get(), &target->signature))
        return disk.path + " is not that disk any more, or cannot be read";
    target->claim = claim_mirror(target->disk.guid); // there may be no mirrors at all
    return "";
}

// Of the disk when the snapshot was taken, in bytes: its mirror may be larger. 0 if the device has less.
uint64_t size_of(const snapshot_member &member, const std::string &device)
{
    const unique_fd fd(open(device.c_str(), O_RDONLY | O_CLOEXEC));
    const off_t end = fd.is_open() ? lseek(fd.get(), 0, SEEK_END) : -1;
    const uint64_t whole = end > 0 ? static_cast<uint64_t>(end) : 0;
    const uint64_t size = parse_number(member.size).value_or(whole);
    return size <= whole ? size : 0;
}

std::string mirror_of(const std::string &guid)
{
    for (const auto &[mirror, source] : sources_by_mirror().value_or(std::map<std::string, std::string>{})) {
        if (source == guid)
            return mirror;
    }
    return "";
}

std::string objection_to(const attached_snapshot &one, restore_target *target)
{
    if (target->size == 0)
        return target->device + " is not as large as the snapshot";
    for (const std::string &objection :
         {direction_objection(target->disk), place_objection(one, target->disk),
          use_objection(target->disk.facts), kind_objection(target->disk), size_objection(*target)}) {
        if (!objection.empty())
            return objection;
    }
    return claim_disk(target);
}
} // namespace

std::optional<restore_target> open_target(const attached_snapshot &one, size_t number,
                                          const std::string &where, std::string *why)
{
    auto disk = find_disk(where, why);
    if (!disk)
        return std::nullopt;
    restore_target target;
    target.disk = std::move(*disk);
    target.device = one.devices[number];
    target.size = size_of(one.record.members[number], target.device);
    *why = objection_to(one, &target);
    if (!why->empty())
        return std::nullopt;
    target.mirror = mirror_of(target.disk.guid);
    auto contents = contents_of(target.disk.facts.path, why);
    if (!contents)
        return std::nullopt;
    target.contents = std::move(*contents);
    return target;
}
