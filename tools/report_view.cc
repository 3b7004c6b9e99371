#include "tools/report_view.h"

#include "base/number.h"
#include "base/xml.h"

#include <algorithm>
#include <vector>

namespace {
constexpr char no_report[] = "not a client report";

std::string value(const xmlNode *node, const char *attribute)
{
    return xml_attribute(node, attribute).value_or("");
}

const xmlNode *client_of(const xml_doc &doc)
{
    return doc && xml_root(doc) ? find_child(xml_root(doc), "Client") : nullptr;
}

size_t count_children(const xmlNode *list, const char *name)
{
    size_t count = 0;
    for (const xmlNode *child : xml_children{list})
        count += xml_is_named(child, name);
    return count;
}

std::string human_size(const std::string &bytes)
{
    constexpr const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    auto size = static_cast<double>(scan_unsigned(bytes.c_str()));
    size_t unit = 0;
    for (; size >= 1024 && unit + 1 < std::size(units); ++unit)
        size /= 1024;
    char text[32];
    snprintf(text, sizeof text, size < 10 && unit > 0 ? "%.1f %s" : "%.0f %s", size, units[unit]);
    return text;
}

std::string partition_table(const std::string &type)
{
    return type == "1" ? "MBR" : type == "2" ? "GPT" : "-";
}

using table = std::vector<std::vector<std::string>>;

// Rows of cells with aligned columns, two blanks between them; the first row is the heading.
std::string align(const table &rows)
{
    std::vector<size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const auto &row : rows) {
        std::string line = "  ";
        for (size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] + 2 - row[i].size(), ' ');
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

void add_row(table &rows, const xmlNode *node, std::initializer_list<const char *> attributes)
{
    auto &row = rows.emplace_back();
    for (const char *attribute : attributes)
        row.push_back(value(node, attribute));
}

// One of the report's plain lists: a column per attribute, under the attribute's own name.
std::string plain_list(const xmlNode *client, const char *list_name, const char *element,
                       std::initializer_list<const char *> attributes)
{
    const xmlNode *list = find_child(client, list_name);
    if (count_children(list, element) == 0)
        return "";
    table rows{{attributes.begin(), attributes.end()}};
    for (const xmlNode *child : xml_children{list}) {
        if (xml_is_named(child, element))
            add_row(rows, child, attributes);
    }
    return std::string(list_name) + "\n" + align(rows);
}

std::string disk_list(const xmlNode *client)
{
    const xmlNode *list = find_child(client, "DiskList");
    if (!list)
        return "";
    table rows{{"Disk", "Size", "Table", "GUID", "FS", "Used", "System", "Vendor"}};
    for (const xmlNode *disk : xml_children{list}) {
        if (!xml_is_named(disk, "Disk"))
            continue;
        rows.push_back({value(disk, "Name"), human_size(value(disk, "Size")),
                        partition_table(value(disk, "Type")), value(disk, "Guid"), value(disk, "FS"), "",
                        value(disk, "SysDisk") == "1" ? "yes" : "", value(disk, "Vendor")});
        for (const xmlNode *part : xml_children{disk})
            rows.push_back({"  " + value(part, "Name"), human_size(value(part, "Size")), "",
                            value(part, "Guid"), value(part, "FS"), human_size(value(part, "Used"))});
    }
    return "DiskList\n" + align(rows);
}
} // namespace

std::string report_line(const char *report)
{
    const xml_doc doc = xml_parse_text(report);
    const xmlNode *client = client_of(doc);
    if (!client)
        return no_report;
    std::string line = "host " + value(client, "HostName") + " [" + value(client, "IPs") + "]";
    constexpr struct {
        const char *list, *element, *what;
    } lists[] = {
        {"DiskList", "Disk", "disks"},       {"ChannelList", "Channel", "channels"},
        {"BackupList", "Backup", "backups"}, {"DataBaseList", "DataBase", "databases"},
        {"GroupList", "Group", "groups"},
    };
    for (const auto &entry : lists) {
        if (const xmlNode *list = find_child(client, entry.list))
            line +=
                std::string(", ") + entry.what + " " + std::to_string(count_children(list, entry.element));
    }
    return line;
}

std::string report_page(const char *report)
{
    const xml_doc doc = xml_parse_text(report);
    const xmlNode *client = client_of(doc);
    if (!client)
        return std::string(no_report) + "\n";
    table facts;
    for (const char *attribute :
         {"Name", "HostName", "IPs", "SysVersion", "SystemType", "ID", "Alias", "DBOEM"}) {
        if (const optional_text fact = xml_attribute(client, attribute))
            facts.push_back({attribute, fact->empty() ? "-" : *fact});
    }
    return "Client\n" + align(facts) + disk_list(client) +
           plain_list(client, "ChannelList", "Channel",
                      {"Type", "InitiatorIqn", "TargetIqn", "InitiatorWWN", "TargetWWN"}) +
           plain_list(
               client, "BackupList", "Backup",
               {"SrcName", "SrcGUID", "DestGUID", "State", "Percent", "StartTime", "IntervalSeconds"}) +
           plain_list(client, "DataBaseList", "DataBase",
                      {"InstanceName", "Type", "OracleHome", "ArchiveLog"}) +
           plain_list(client, "GroupList", "Group",
                      {"GroupName", "StartTimestamp", "IntervalTime", "Active"});
}
