#include "tools/qelc/disk_contents.h"

#include "base/fd.h"
#include "platform/linux/disks/content.h"
#include "platform/linux/disks/host_disks.h"
#include "platform/linux/host/mountinfo.h"
#include "platform/linux/host/text.h"
#include "tools/common/human_text.h"

#include <fcntl.h>

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

// One part of a disk, or the disk as a whole if it has no table.
void add_part(disk_contents &contents, const std::string &name, const std::string &type,
              const std::string &mount_point, bool is_whole)
{
    contents.has_file_systems |= is_file_system(type);
    if (!mount_point.empty() && contents.mounted.empty())
        contents.mounted = name + " is mounted" + (mount_point == "-" ? "" : " on " + mount_point);
    if (is_whole && type.empty())
        return;
    contents.description += ", " + (is_whole ? type : name + (type.empty() ? "" : " " + type));
    if (!mount_point.empty())
        contents.description += mount_point == "-" ? " (mounted)" : " mounted on " + mount_point;
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
    constexpr const char *texts[] = {"", "MBR", "GPT", "another partition table"};
    return texts[static_cast<size_t>(type)];
}

void add_parts(disk_contents &contents, const disk_facts &disk, int fd)
{
    const std::vector<mount_record> mounts = read_mounts();
    const auto whole = read_file_system(fd, 0, contents.size);
    add_part(contents, disk.name, whole.value_or(""), mount_point_of(mounts, disk.device), true);
    for (const partition_facts &part : disk.partitions)
        add_part(contents, part.name,
                 read_file_system(fd, part.start * sector, part.sectors * sector).value_or(""),
                 mount_point_of(mounts, part.device), false);
}
} // namespace

disk_contents reported_contents(const disk_view &disk)
{
    disk_contents contents{disk.name, words(size_text(disk.size), disk.vendor), disk.size, ""};
    contents.description += disk.table.empty() ? "" : ", " + disk.table;
    for (const partition_view &part : disk.partitions)
        add_part(contents, part.name, part.file_system, part.used > 0 ? "-" : "", false);
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
    const unique_fd fd(open(disk->path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.is_open()) {
        contents.description += ", it cannot be read here";
        return contents;
    }
    const auto found = read_content(fd.get());
    const table_type table = read_table_type(fd.get());
    contents.description += table == table_type::none ? "" : std::string(", ") + table_text(table);
    add_parts(contents, *disk, fd.get());
    contents.is_blank = found && !found->superblock && found->table == table_type::none;
    contents.description += contents.is_blank ? ", blank" : "";
    return contents;
}
