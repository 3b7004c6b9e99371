#include "tools/snapshots/mounts.h"

#include "platform/linux/agent/limited_run.h"
#include "platform/linux/agent/snapshot_list.h"
#include "platform/linux/host/mountinfo.h"
#include "platform/linux/host/sysfs.h"
#include "tools/snapshots/contents.h"
#include "tools/volumes/host_view.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {
struct planned_mount {
    std::string device; // of the whole snapshot
    content what;
    std::string point;
    bool makes_folder = false;
};

// --- What is mounted where -----------------------------------------------------------------------------

std::string list_of(const std::vector<content> &all)
{
    std::string text;
    for (const content &one : all)
        text += (text.empty() ? "" : ", ") + text_of(one);
    return text;
}

// Why none of these can be mounted.
std::string nothing_to_mount(const std::vector<content> &all, const std::string &name)
{
    if (all.empty())
        return "there is nothing on it that is known";
    return "what is on it cannot be mounted here: " + list_of(all) +
           (std::ranges::any_of(all, [](const content &one) { return one.type == "LVM2_member"; })
                ? "; LVM would take its volumes for those of the disk"
                : "") +
           "; qelc snapshots attach " + name + " gives the device to those who know more";
}

// The file system that is meant. Null with the reason in WHY.
std::optional<content> choose(std::vector<content> all, const mount_wish &wish, std::string *why)
{
    if (wish.partition) {
        std::erase_if(all, [&](const content &one) { return one.partition != *wish.partition; });
        if (all.empty()) {
            *why = "it has no partition " + std::to_string(*wish.partition);
            return std::nullopt;
        }
    }
    *why = nothing_to_mount(all, wish.name);
    std::erase_if(all, [](const content &one) { return !is_mountable(one); });
    if (all.size() > 1)
        *why = "there are several file systems: " + list_of(all) + "; choose one with --partition";
    return all.size() == 1 ? std::optional(all.front()) : std::nullopt;
}

// The kernel takes all devices with one UUID of Btrfs for parts of one file system.
bool has_mounted_btrfs(const std::string &device, const content &what)
{
    if (what.type != "btrfs")
        return false;
    const run_result uuid = run_limited(
        {.words = {"blkid", "-p", "-O", std::to_string(what.offset), "-o", "value", "-s", "UUID", device}},
        {.time = std::chrono::seconds(10), .output = 100});
    const std::string text = uuid.output.substr(0, uuid.output.find('\n'));
    return !text.empty() && access(("/sys/fs/btrfs/" + text).c_str(), F_OK) == 0;
}

std::optional<planned_mount> plan_member(const mount_wish &wish, const std::string &device, std::string *why)
{
    auto all = contents_of(device, why);
    auto chosen = all ? choose(std::move(*all), wish, why) : std::nullopt;
    if (!chosen)
        return std::nullopt;
    if (!has_mounted_btrfs(device, *chosen))
        return planned_mount{device, std::move(*chosen), wish.folder};
    *why = "it is Btrfs, and a file system with the same UUID is mounted; the kernel cannot tell the two "
           "apart. Unmount the other one first";
    return std::nullopt;
}

std::optional<std::vector<planned_mount>> plan(const attached_snapshot &one, const mount_wish &wish,
                                               std::string *why)
{
    std::vector<planned_mount> all;
    for (size_t i = 0; i < one.devices.size(); i++) {
        auto mount = plan_member(wish, one.devices[i], why);
        const std::string title = disk_title(one.record.members[i].source);
        if (!mount) {
            *why = title + ": " + *why;
            return std::nullopt;
        }
        mount->makes_folder = !one.record.group.empty();
        if (mount->makes_folder)
            mount->point += "/" + title;
        all.push_back(std::move(*mount));
    }
    return all;
}

// --- Mounting --------------------------------------------------------------------------------------------

// A partition is mounted through a loop device of its own, which ends with the mount: the kernel shows no
// partitions of logical volumes, and a node of one may come late.
bool mount_one(const planned_mount &one, std::string *why)
{
    if (one.makes_folder && mkdir(one.point.c_str(), 0755) != 0) {
        *why = one.point + ": " + strerror(errno);
        return false;
    }
    std::string options = mount_options(one.what.type);
    if (one.what.partition != 0)
        options +=
            ",loop,offset=" + std::to_string(one.what.offset) + ",sizelimit=" + std::to_string(one.what.size);
    const run_result result =
        run_limited({.words = {"mount", "-t", one.what.type, "-o", options, one.device, one.point}},
                    {.time = std::chrono::seconds(60), .output = 4096});
    if (result.complaint.empty() && result.exit_status == 0)
        return true;
    *why = "mount: " + (result.complaint.empty() ? result.first_error_line : result.complaint);
    if (one.makes_folder)
        rmdir(one.point.c_str());
    return false;
}

// All or none.
bool mount_all(const std::vector<planned_mount> &all, std::string *why)
{
    for (size_t done = 0; done < all.size(); done++) {
        if (mount_one(all[done], why))
            continue;
        while (done-- > 0) {
            umount2(all[done].point.c_str(), UMOUNT_NOFOLLOW);
            rmdir(all[done].point.c_str());
        }
        return false;
    }
    return true;
}

// --- Unmounting ------------------------------------------------------------------------------------------

// The last ones first, since one may be mounted inside another.
std::vector<mount_record> mounts_of(const std::string &device)
{
    const std::string disk = kernel_name_of(device);
    auto mounts = read_mounts();
    std::erase_if(mounts, [&](const mount_record &mount) { return !lies_on(mount.device, disk); });
    std::ranges::reverse(mounts);
    return mounts;
}

// A group's member was mounted in a folder that was made for it.
bool unmount_member(const snapshot &of, const snapshot_member &member, const std::string &device,
                    std::string *why)
{
    for (const mount_record &mount : mounts_of(device)) {
        if (umount2(mount.point.c_str(), UMOUNT_NOFOLLOW) != 0) {
            *why = mount.point + ": " +
                   (errno == EBUSY ? "somebody uses it (fuser -vm tells who)" : strerror(errno));
            return false;
        }
        if (!of.group.empty() && mount.point.ends_with("/" + disk_title(member.source)))
            rmdir(mount.point.c_str());
    }
    return true;
}
} // namespace

std::string empty_folder(const std::string &folder, std::string *why)
{
    char real[PATH_MAX];
    const auto names = realpath(folder.c_str(), real) ? list_folder(real) : std::nullopt;
    if (names && names->empty())
        return real;
    *why = folder + ": " +
           (names             ? "it is not empty"
            : errno == ENOENT ? "there is no such folder; make it first"
                              : strerror(errno));
    return "";
}

std::optional<std::vector<std::string>> mount_snapshot(const mount_wish &wish, std::string *why)
{
    mount_wish resolved = wish;
    resolved.folder = empty_folder(wish.folder, why);
    if (resolved.folder.empty())
        return std::nullopt;
    const auto one = attach_snapshot(wish.name, why);
    const auto all = one ? plan(*one, resolved, why) : std::nullopt;
    if (!all || !mount_all(*all, why)) {
        std::string why_attached;
        if (one && !one->was_attached && !detach_patiently(wish.name, &why_attached))
            *why += "; it stays attached: " + why_attached;
        return std::nullopt;
    }
    std::vector<std::string> points;
    for (const planned_mount &mount : *all)
        points.push_back(mount.point);
    return points;
}

bool unmount_snapshot(const std::string &name, std::string *why)
{
    const auto found = look_at_snapshot(name, why);
    if (found && found->devices.empty())
        *why = "it is not mounted";
    if (!found || found->devices.empty())
        return false;
    // All of them are attached, and this only asks for their devices.
    const auto one = attach_snapshot(name, why);
    for (size_t i = 0; one && i < one->devices.size(); i++) {
        if (!unmount_member(one->record, one->record.members[i], one->devices[i], why))
            return false;
    }
    return one && detach_patiently(name, why);
}
