#include "tools/qelc/disk_contents.h"

#include "platform/linux/disks/host_disks.h"
#include "platform/linux/host/mountinfo.h"
#include "platform/linux/host/text.h"
#include "tools/common/human_text.h"
#include "tools/qelc/points_in_time.h"
#include "tools/snapshots/contents.h"

#include <algorithm>

namespace {
constexpr uint64_t sector = 512;

bool is_file_system(const std::string &type)
{
    return !type.empty() && type != "swap";
}

std::string words(const std::string &front, const std::string &back)
{
    return front + (front.empty() || back.empty() ? "" : ", ") + back;
}

// One part of a disk.
struct part {
    std::string name; // "" for the disk as a whole
    content what;
    std::string mount_point; // "-" if nobody tells which; "" if it is not mounted
};

std::string mount_text(const part &one)
{
    if (!one.mount_point.empty())
        return one.mount_point == "-" ? " (mounted)" : " mounted on " + one.mount_point;
    if (one.what.last_mount == 0)
        return "";
    return " last mounted" + (one.what.last_folder.empty() ? "" : " on " + one.what.last_folder) + ", " +
           date_text(one.what.last_mount);
}

void add_part(disk_contents &contents, const part &one)
{
    const std::string &type = one.what.type;
    contents.has_file_systems |= is_file_system(type);
    if (!one.mount_point.empty() && contents.mounted.empty())
        contents.mounted = (one.name.empty() ? contents.name : one.name) + " is mounted" +
                           (one.mount_point == "-" ? "" : " on " + one.mount_point);
    if (one.name.empty() && type.empty())
        return;
    const std::string label = one.what.label.empty() ? "" : " \"" + one.what.label + "\"";
    contents.description += ", " + one.name + (one.name.empty() || type.empty() ? "" : " ") + type + label;
    contents.description += mount_text(one);
}

std::string mount_point_of(const std::vector<mount_record> &mounts, dev_t device)
{
    const auto found =
        std::ranges::find_if(mounts, [&](const mount_record &mount) { return mounts_device(mount, device); });
    return found == mounts.end() ? "" : found->point;
}

std::string padded_off(const std::optional<std::string> &text)
{
    return text ? std::string(trim_padding(*text)) : "";
}

const char *table_text(table_type type)
{
    constexpr const char *texts[] = {"", ", MBR", ", GPT", ", another partition table"};
    return texts[static_cast<size_t>(type)];
}

// The kernel may not show a partition that the table has.
part part_of(const disk_facts &disk, const content &what, const std::vector<mount_record> &mounts)
{
    if (what.partition == 0)
        return {"", what, mount_point_of(mounts, disk.device)};
    const auto found = std::ranges::find(disk.partitions, what.partition, &partition_facts::number);
    if (found == disk.partitions.end())
        return {"partition " + std::to_string(what.partition), what, ""};
    return {found->name, what, mount_point_of(mounts, found->device)};
}

// A disk may be mounted as a whole though libblkid does not know what is on it.
void add_parts(disk_contents &contents, const disk_facts &disk, const std::vector<content> &parts)
{
    const std::vector<mount_record> mounts = read_mounts();
    if (parts.empty() || parts.front().partition != 0)
        add_part(contents, part_of(disk, {}, mounts));
    for (const content &what : parts)
        add_part(contents, part_of(disk, what, mounts));
}
} // namespace

disk_contents reported_contents(const disk_view &disk)
{
    disk_contents contents{disk.name, words(size_text(disk.size), disk.vendor), disk.size, ""};
    contents.description += disk.table.empty() ? "" : ", " + disk.table;
    for (const partition_view &one : disk.partitions) {
        content what;
        what.type = one.file_system;
        add_part(contents, {one.name, what, one.used > 0 ? "-" : ""});
    }
    return contents;
}

std::optional<disk_contents> contents_here(const std::string &name)
{
    const auto disk = read_disk(name);
    if (!disk)
        return std::nullopt;
    const std::string model = words(padded_off(disk->vendor), padded_off(disk->model));
    disk_contents contents{disk->name, words(size_text(disk->sectors * sector), model),
                           disk->sectors * sector, ""};
    std::string why;
    const auto kind = kind_of(disk->path);
    const auto parts = kind ? contents_of(disk->path, &why) : std::nullopt;
    if (!parts) {
        contents.description += ", it cannot be read here";
        return contents;
    }
    contents.description += table_text(kind->table);
    add_parts(contents, *disk, *parts);
    contents.is_blank = kind->is_blank;
    contents.description += contents.is_blank ? ", blank" : "";
    return contents;
}
