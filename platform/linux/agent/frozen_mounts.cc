#include "platform/linux/agent/frozen_mounts.h"

#include "platform/linux/agent/hooks.h"
#include "platform/linux/host/mountinfo.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/state/folders.h"
#include "platform/linux/state/text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <map>
#include <set>

namespace {

// Whoever writes there waits while it is frozen: this process, the system log, the programs that an
// administrator needs to help himself.
const std::vector<std::string> needed_by_the_host = {"/",
                                                     "/dev",
                                                     "/etc",
                                                     "/run",
                                                     "/tmp",
                                                     "/usr",
                                                     "/var",
                                                     "/var/cache",
                                                     "/var/lib",
                                                     "/var/log",
                                                     "/var/run",
                                                     "/var/tmp",
                                                     hook_folder,
                                                     "/etc/kavtessaron",
                                                     twinvault.path,
                                                     kavcdpagt.path};

// Adds the block device of that folder of sysfs, its partitions, and what is stacked on any of them.
void add_devices(const std::string &folder, std::set<dev_t> *devices)
{
    const auto device = parse_device_number(read_attribute(folder + "/dev").value_or(""));
    if (!device || !devices->insert(*device).second)
        return;
    for (const std::string &name : list_folder(folder).value_or(std::vector<std::string>{})) {
        if (read_attribute(folder + "/" + name + "/partition"))
            add_devices(folder + "/" + name, devices);
    }
    for (const std::string &name : list_folder(folder + "/holders").value_or(std::vector<std::string>{}))
        add_devices("/sys/class/block/" + name, devices);
}

bool is_on_one_of(const mount_record &mount, const std::set<dev_t> &devices)
{
    return std::any_of(devices.begin(), devices.end(),
                       [&](dev_t device) { return mounts_device(mount, device); });
}

struct place {
    dev_t device = 0;
    uint64_t mount = 0; // 0: unknown
};

std::optional<place> place_of(int folder, const char *path, int flags)
{
    struct statx facts {};
    if (statx(folder, path, flags | AT_NO_AUTOMOUNT, STATX_MNT_ID, &facts) != 0)
        return std::nullopt;
    return place{makedev(facts.stx_dev_major, facts.stx_dev_minor), facts.stx_mnt_id};
}

// What is found there belongs to another device than the mount says where a file system has several (btrfs),
// so that both count.
std::map<dev_t, std::string> devices_of(const std::vector<std::string> &paths,
                                        const std::vector<mount_record> &mounts)
{
    std::map<dev_t, std::string> devices;
    for (const std::string &path : paths) {
        const auto found = place_of(AT_FDCWD, path.c_str(), 0);
        if (!found)
            continue;
        devices.emplace(found->device, path);
        for (const mount_record &mount : mounts) {
            if (mount.id == found->mount)
                devices.emplace(mount.device, path);
        }
    }
    return devices;
}

// Closed if something else is mounted over it.
unique_fd open_mount(const mount_record &mount)
{
    unique_fd file(open(mount.point.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const auto found = file.is_open() ? place_of(file.get(), "", AT_EMPTY_PATH) : std::nullopt;
    if (!found || found->mount != mount.id)
        file.reset();
    return file;
}

} // namespace

std::optional<std::vector<mounted_file_system>> open_file_systems(const std::vector<std::string> &disks,
                                                                  const std::vector<std::string> &needed,
                                                                  std::string *why)
{
    std::set<dev_t> devices;
    for (const std::string &disk : disks)
        add_devices("/sys/block/" + disk_name_of(disk), &devices);
    const std::vector<mount_record> mounts = read_mounts();
    std::vector<std::string> paths = needed_by_the_host;
    paths.insert(paths.end(), needed.begin(), needed.end());
    const std::map<dev_t, std::string> never = devices_of(paths, mounts);
    std::map<dev_t, mounted_file_system> found; // one of each, wherever it is mounted
    for (const mount_record &mount : mounts) {
        if (!is_on_one_of(mount, devices))
            continue;
        if (const auto use = never.find(mount.device); use != never.end()) {
            *why = "the file system at " + escaped(mount.point) + " holds " + escaped(use->second);
            return std::nullopt;
        }
        mounted_file_system &one = found[mount.device];
        if (!one.file.is_open())
            one = {mount.point, open_mount(mount)};
    }
    std::vector<mounted_file_system> all;
    for (auto &[device, one] : found) {
        if (!one.file.is_open()) {
            *why = "the file system at " + escaped(one.point) + " cannot be opened";
            return std::nullopt;
        }
        all.push_back(std::move(one));
    }
    return all;
}
