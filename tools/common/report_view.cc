#include "tools/common/report_view.h"

#include "tools/common/disks.h"
#include "tools/common/text_table.h"
#include "tools/common/visible.h"

namespace {
size_t count_children(const xmlNode *list, const char *name)
{
    size_t count = 0;
    for (const xmlNode *child : xml_children{list})
        count += xml_is_named(child, name);
    return count;
}

void add_row(text_table &rows, const xmlNode *node, std::initializer_list<const char *> attributes)
{
    auto &row = rows.emplace_back();
    for (const char *attribute : attributes)
        row.push_back(report_value(node, attribute));
}

// One of the report's plain lists: a column per attribute, under the attribute's own name.
std::string plain_list(const xmlNode *client, const char *list_name, const char *element,
                       std::initializer_list<const char *> attributes)
{
    const xmlNode *list = find_child(client, list_name);
    if (count_children(list, element) == 0)
        return "";
    text_table rows{{attributes.begin(), attributes.end()}};
    for (const xmlNode *child : xml_children{list}) {
        if (xml_is_named(child, element))
            add_row(rows, child, attributes);
    }
    return std::string(list_name) + "\n" + align(rows);
}

std::string disk_list(const xmlNode *client)
{
    const auto disks = disks_of(client);
    return disks ? "DiskList\n" + disks_table(*disks) : "";
}
} // namespace

const xmlNode *report_client(const xml_doc &doc)
{
    return doc ? find_child(xml_root(doc), "Client") : nullptr;
}

std::string report_value(const xmlNode *node, const char *attribute)
{
    return xml_attribute(node, attribute).value_or("");
}

std::string report_line(const char *report)
{
    const xml_doc doc = xml_parse_text(report);
    const xmlNode *client = report_client(doc);
    if (!client)
        return no_report;
    std::string line =
        visible("host " + report_value(client, "HostName") + " [" + report_value(client, "IPs") + "]");
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
    const xmlNode *client = report_client(doc);
    if (!client)
        return std::string(no_report) + "\n";
    text_table facts;
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
