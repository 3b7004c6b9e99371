#include "platform/linux/disks/host_disks.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

#include <algorithm>

namespace {

const std::string block_folder = "/sys/block/";

// True if NAME is PREFIX followed by a number.
bool is_numbered(std::string_view name, std::string_view prefix)
{
    return name.starts_with(prefix) && parse_number(name.substr(prefix.size()));
}

// True for a device over a snapshot that a keeper has made, whatever has attached it. It has the GUID of the
// mirror that it shows, and must never be taken for that. Told by the names that the keepers give, which the
// kernel shows as long as the device is there: a clone of a file lies in a folder FILE.qelcd-snapshots, a
// logical volume is VOLUME.qelcd-TIME (LVM doubles hyphens in the names of its devices).
bool is_snapshot(const std::string &folder)
{
    const std::string file = read_attribute(folder + "/loop/backing_file").value_or("");
    if (file.substr(0, file.rfind('/')).ends_with(".qelcd-snapshots"))
        return true;
    return read_attribute(folder + "/dm/uuid").value_or("").starts_with("LVM-") &&
           read_attribute(folder + "/dm/name").value_or("").find(".qelcd--2") != std::string::npos;
}

bool is_disk(const std::string &name)
{
    if (is_numbered(name, "ram") || is_numbered(name, "zram"))
        return false;
    const std::string folder = block_folder + name;
    if (is_numbered(name, "loop") && read_attribute(folder + "/loop/backing_file").value_or("").empty())
        return false;
    return read_number(folder + "/hidden").value_or(0) == 0 && !is_snapshot(folder);
}

std::optional<dev_t> read_device_number(const std::string &folder)
{
    const auto text = read_attribute(folder + "/dev");
    return text ? parse_device_number(*text) : std::nullopt;
}

std::optional<partition_facts> read_partition(const std::string &folder, const std::string &name)
{
    const auto number = read_number(folder + "/partition");
    const auto start = read_number(folder + "/start");
    const auto sectors = read_number(folder + "/size");
    const auto device = read_device_number(folder);
    if (!number || !start || !sectors || !device)
        return std::nullopt;
    return partition_facts{name, *number, *start, *sectors, *device};
}

std::vector<partition_facts> read_partitions(const std::string &folder)
{
    std::vector<partition_facts> partitions;
    for (const std::string &entry : list_folder(folder).value_or(std::vector<std::string>{})) {
        if (auto partition = read_partition(folder + "/" + entry, entry))
            partitions.push_back(std::move(*partition));
    }
    std::stable_sort(partitions.begin(), partitions.end(),
                     [](const auto &one, const auto &other) { return one.number < other.number; });
    return partitions;
}

} // namespace

std::optional<std::vector<std::string>> host_disk_names()
{
    auto names = list_folder(block_folder);
    if (names)
        std::erase_if(*names, [](const std::string &name) { return !is_disk(name); });
    return names;
}

std::optional<disk_facts> read_disk(const std::string &name)
{
    disk_facts disk;
    disk.name = name;
    disk.folder = block_folder + name;
    disk.path = "/dev/" + name;
    const auto device = read_device_number(disk.folder);
    const auto sectors = read_number(disk.folder + "/size");
    if (!device || !sectors)
        return std::nullopt;
    // Names in sysfs have no slash; cciss!c0d0 stands for /dev/cciss/c0d0.
    std::replace(disk.path.begin(), disk.path.end(), '!', '/');
    disk.device = *device;
    disk.sectors = *sectors;
    disk.vendor = read_attribute(disk.folder + "/device/vendor");
    disk.model = read_attribute(disk.folder + "/device/model");
    disk.partitions = read_partitions(disk.folder);
    return disk;
}
