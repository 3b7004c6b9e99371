#include "tools/qelc/left_out.h"

#include "platform/linux/disks/signature_rule.h"
#include "platform/linux/host/sysfs.h"
#include "tools/snapshots/contents.h"
#include "tools/volumes/host_view.h"

#include <algorithm>
#include <cstring>

namespace {
constexpr uint64_t sector = 512;

std::string mounted_text(const disk_facts &disk, const std::vector<mount_record> &mounts)
{
    const auto found = std::ranges::find_if(
        mounts, [&](const mount_record &mount) { return mounts_device(mount, disk.device); });
    return "it is mounted as a whole" + (found == mounts.end() ? "" : " on " + found->point);
}

// With the name that people know, such as that of a logical volume.
std::string holder_text(const disk_facts &disk)
{
    const auto holders = list_folder(disk.folder + "/holders").value_or(std::vector<std::string>{});
    if (holders.empty())
        return "another device uses it";
    const std::string &name = holders.front();
    const std::string title = read_attribute("/sys/block/" + name + "/dm/name").value_or("");
    return name + (title.empty() ? "" : " (" + title + ")") + " uses it";
}

std::string content_text(const disk_facts &disk)
{
    std::string why;
    const auto parts = contents_of(disk.path, &why).value_or(std::vector<content>{});
    if (parts.empty() || parts.front().partition != 0)
        return "something else than a partition table is on it as a whole";
    const std::string &label = parts.front().label;
    return "it holds " + parts.front().type + (label.empty() ? "" : " \"" + label + "\"") + " as a whole";
}

std::string text_of(signature_objection objection, const disk_facts &disk,
                    const std::vector<mount_record> &mounts)
{
    using enum signature_objection;
    switch (objection) {
    case mounted:
        return mounted_text(disk, mounts);
    case empty:
        return "it is empty, or has no medium";
    case too_small:
        return "it is too small: it has 1440 KiB or less";
    case composed:
        return "it is made of other devices";
    case held:
        return holder_text(disk);
    case read_only:
        return "it is read-only";
    case removable:
        return "it is removable";
    case unreadable:
        return "it cannot be read";
    case ambiguous:
        return "what is on it is ambiguous, or cannot be read";
    case superblock:
        return content_text(disk);
    case other_table:
        return "its partition table is neither MBR nor GPT";
    case unknown_data:
        return "its first sector holds something unknown";
    case claimed:
        return "another program uses it";
    case none:
        break;
    }
    return "the daemon has not seen it yet: qelc rescan_devices";
}

// "" if it is no mirror.
std::string mirror_text(const host_view &seen, const std::string &guid)
{
    const auto found =
        std::ranges::find(seen.mirrors, guid, [](const mirror_view &one) { return one.guids.mirror; });
    return guid.empty() || found == seen.mirrors.end() ? "" : "it is the mirror of " + found->disk;
}
} // namespace

std::vector<left_out_disk> left_out_disks(host &at)
{
    const host_view &seen = at.view();
    const std::vector<mount_record> mounts = read_mounts();
    std::vector<left_out_disk> all;
    for (const known_disk &disk : known_disks().value_or(std::vector<known_disk>{})) {
        if (std::ranges::find(seen.disks, disk.facts.name, &disk_view::name) != seen.disks.end())
            continue;
        std::string reason = mirror_text(seen, disk.guid);
        if (reason.empty())
            reason = text_of(objection_to_report(disk.facts, mounts), disk.facts, mounts);
        all.push_back({disk.facts.name, disk.facts.sectors * sector, std::move(reason)});
    }
    // loop2 before loop10.
    std::ranges::sort(all, [](const left_out_disk &one, const left_out_disk &other) {
        return strverscmp(one.name.c_str(), other.name.c_str()) < 0;
    });
    return all;
}
