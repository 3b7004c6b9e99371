#include "tools/qelc/views/groups.h"

#include "base/xml.h"
#include "tools/common/report_view.h"
#include "tools/common/text_table.h"
#include "tools/qelc/views/short_guid.h"

namespace {
std::vector<std::string> guids_of(const std::vector<group_view> &groups)
{
    std::vector<std::string> guids;
    for (const group_view &group : groups)
        guids.insert(guids.end(), group.disks.begin(), group.disks.end());
    return guids;
}
} // namespace

std::optional<std::vector<group_view>> groups_of(const char *answer)
{
    const xml_doc doc = xml_parse_text(answer);
    const xmlNode *list = doc ? find_child(xml_root(doc), "GroupList") : nullptr;
    if (!list)
        return std::nullopt;
    std::vector<group_view> groups;
    for (const xmlNode *node : xml_children{list}) {
        if (!xml_is_named(node, "Group"))
            continue;
        group_view &group = groups.emplace_back(group_view{report_value(node, "name"), {}});
        for (const xmlNode *disk : xml_children{node}) {
            if (xml_is_named(disk, "Disk"))
                group.disks.push_back(report_value(disk, "guid"));
        }
    }
    return groups;
}

optional_text groups_page(const char *answer)
{
    const auto groups = groups_of(answer);
    if (!groups)
        return std::nullopt;
    if (groups->empty())
        return "no groups\n";
    text_table rows{{"Group", "Disk"}};
    const std::vector<std::string> all = guids_of(*groups);
    for (const group_view &group : *groups) {
        rows.push_back({group.name});
        for (const std::string &disk : group.disks) {
            auto &row = &disk == &group.disks.front() ? rows.back() : rows.emplace_back(1);
            row.push_back(are_tables_cut() ? short_guid(disk, all) : disk);
        }
    }
    return align(rows);
}
