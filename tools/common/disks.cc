#include "tools/common/disks.h"

#include "base/number.h"
#include "tools/common/human_text.h"
#include "tools/common/report_view.h"
#include "tools/common/text_table.h"

namespace {
uint64_t number_of(const xmlNode *node, const char *attribute)
{
    return scan_unsigned(report_value(node, attribute).c_str());
}

std::string partition_table(const std::string &type)
{
    return type == "1" ? "MBR" : type == "2" ? "GPT" : "";
}

disk_view read_disk(const xmlNode *disk)
{
    disk_view view{.name = report_value(disk, "Name"),
                   .guid = report_value(disk, "Guid"),
                   .size = number_of(disk, "Size"),
                   .table = partition_table(report_value(disk, "Type")),
                   .vendor = report_value(disk, "Vendor"),
                   .is_system = report_value(disk, "SysDisk") == "1"};
    for (const xmlNode *part : xml_children{disk})
        view.partitions.push_back({report_value(part, "Name"), report_value(part, "Guid"),
                                   number_of(part, "Size"), number_of(part, "Used"),
                                   report_value(part, "FS")});
    return view;
}
} // namespace

std::optional<std::vector<disk_view>> disks_of(const xmlNode *client)
{
    const xmlNode *list = client ? find_child(client, "DiskList") : nullptr;
    if (!list)
        return std::nullopt;
    std::vector<disk_view> disks;
    for (const xmlNode *disk : xml_children{list}) {
        if (xml_is_named(disk, "Disk"))
            disks.push_back(read_disk(disk));
    }
    return disks;
}

std::optional<std::vector<disk_view>> disks_of(const char *report)
{
    const xml_doc doc = xml_parse_text(report);
    return disks_of(report_client(doc));
}

std::string disks_table(const std::vector<disk_view> &disks)
{
    text_table rows{{"Disk", "Size", "Table", "GUID", "FS", "Used", "System", "Vendor"}};
    for (const disk_view &disk : disks) {
        rows.push_back({disk.name, size_text(disk.size), disk.table.empty() ? "-" : disk.table, disk.guid, "",
                        "", disk.is_system ? "yes" : "", disk.vendor});
        for (const partition_view &part : disk.partitions)
            rows.push_back({"  " + part.name, size_text(part.size), "", part.guid, part.file_system,
                            size_text(part.used)});
    }
    return align(rows);
}
