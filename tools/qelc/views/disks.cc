#include "tools/qelc/views/disks.h"

#include "tools/common/human_text.h"
#include "tools/common/text_table.h"
#include "tools/qelc/views/short_guid.h"

#include <nlohmann/json.hpp>

namespace {
// Of disks, and with WITH_PARTITIONS of their partitions as well: that of a partition with an MBR begins with
// that of its disk, and is meant only by what goes beyond that.
std::vector<std::string> guids_of(const std::vector<disk_view> &disks, bool with_partitions)
{
    std::vector<std::string> guids;
    for (const disk_view &disk : disks) {
        guids.push_back(disk.guid);
        for (const partition_view &part : disk.partitions) {
            if (with_partitions)
                guids.push_back(part.guid);
        }
    }
    return guids;
}

void shorten(std::vector<disk_view> &disks)
{
    const auto of_disks = guids_of(disks, false), of_all = guids_of(disks, true);
    for (disk_view &disk : disks) {
        disk.guid = short_guid(disk.guid, of_disks);
        for (partition_view &part : disk.partitions)
            part.guid = short_guid(part.guid, of_all);
    }
}

std::string table_of(const std::vector<disk_view> &disks)
{
    if (disks.empty())
        return "no disks\n";
    text_table rows{{"Disk", "Size", "Table", "GUID", "Role", "FS", "Label", "Used", "System", "Vendor"}};
    for (const disk_view &disk : disks) {
        rows.push_back({disk.name, size_text(disk.size), disk.table.empty() ? "-" : disk.table, disk.guid,
                        disk.role, "", "", "", disk.is_system ? "yes" : "", disk.vendor});
        for (const partition_view &part : disk.partitions)
            rows.push_back({"  " + part.name, size_text(part.size), "", part.guid, "", part.file_system,
                            part.label, size_text(part.used)});
    }
    return align(rows);
}

json_object object_of(const disk_view &disk)
{
    json_object partitions = json_object::array();
    for (const partition_view &part : disk.partitions)
        partitions.push_back({{"name", part.name},
                              {"guid", part.guid},
                              {"size", part.size},
                              {"used", part.used},
                              {"file_system", part.file_system},
                              {"label", part.label}});
    json_object object;
    object["name"] = disk.name;
    object["guid"] = disk.guid;
    object["size"] = disk.size;
    object["table"] = disk.table.empty() ? json_object() : json_object(disk.table);
    object["vendor"] = disk.vendor;
    object["system"] = disk.is_system;
    object["role"] = disk.role.empty() ? json_object() : json_object(disk.role);
    object["left_out"] = json_object();
    object["partitions"] = std::move(partitions);
    return object;
}
} // namespace

std::string disks_page(const std::vector<disk_view> &disks, const std::vector<left_out_disk> &left_out)
{
    std::vector<disk_view> shown = disks;
    if (are_tables_cut())
        shorten(shown);
    text_table rows{{"Left out", "Size", "Why"}};
    for (const left_out_disk &disk : left_out)
        rows.push_back({disk.name, size_text(disk.size), disk.reason});
    return table_of(shown) + (left_out.empty() ? "" : "\n" + align(rows));
}

json_object disk_records(const std::vector<disk_view> &disks, const std::vector<left_out_disk> &left_out)
{
    json_object list = json_object::array();
    for (const disk_view &disk : disks)
        list.push_back(object_of(disk));
    for (const left_out_disk &disk : left_out) {
        list.push_back(
            object_of({.name = disk.name, .guid = "", .size = disk.size, .table = "", .vendor = ""}));
        list.back()["left_out"] = disk.reason;
    }
    return list;
}
