// Reads the sections on consistency groups and disk schedules. A group has its schedule in attributes, a
// disk's schedule is in child elements.
#include "base/clock.h"
#include "base/log.h"
#include "base/number.h"
#include "config/sections.h"

namespace {
int read_group(const xmlNode *node, std::list<qel_group> &list)
{
    std::list<qel_group> loaded;
    qel_group *group = list_append(loaded);
    if (!group) {
        log_error("Failed to allocate memory for consistency group.");
        return -1;
    }
    group->name = xml_attribute(node, "GroupName");
    const optional_text con_start_time = xml_attribute(node, "CDPConStartTime");
    const optional_text start_time = xml_attribute(node, "CDPStartTime");
    const optional_text timeout = xml_attribute(node, "CDPTimeout");
    if (!group->name || !con_start_time || !start_time || !timeout) {
        log_warning("Missing group property, ignore.");
        return 0;
    }
    group->cdp_con_start_time = scan_unsigned(con_start_time->c_str());
    group->cdp_start_time = scan_unsigned(start_time->c_str());
    group->cdp_timeout = scan_u32(timeout->c_str());
    if (_cfg_xml_to_grp_disk(node, &group->member_list) < 0) {
        log_error("Failed to load members of group whose name is %s.", group->name->c_str());
        return -1;
    }
    list.splice(list.end(), loaded);
    return 0;
}

int read_member(const xmlNode *node, std::list<qel_group_disk> &list)
{
    optional_text guid = xml_attribute(node, "DiskGUID");
    if (!guid) {
        log_warning("Failed to retrieve property DiskGUID.");
        return 0;
    }
    qel_group_disk *member = list_append(list);
    if (!member) {
        log_error("Failed to allocate memory for group member.");
        return -1;
    }
    member->disk_guid = std::move(guid);
    return 0;
}

optional_text child_text(const xmlNode *node, const char *name)
{
    const xmlNode *child = find_child(node, name);
    return child ? xml_content(child) : std::nullopt;
}

// An empty element is an empty text: a schedule that was saved without a mirror comes back.
optional_text disk_text(const xmlNode *node, const char *name)
{
    const xmlNode *child = find_child(node, name);
    return child ? optional_text(xml_content(child).value_or("")) : std::nullopt;
}

int read_schedule(const xmlNode *node, int64_t now, std::list<qel_cdpsch> &list)
{
    std::list<qel_cdpsch> loaded;
    qel_cdpsch *schedule = list_append(loaded);
    if (!schedule) {
        log_error("Failed to allocate memory for CDP schedule.");
        return -1;
    }
    schedule->local_lun = disk_text(node, "CDPLocalLUN");
    schedule->mirror_lun = disk_text(node, "CDPMirrorLUN");
    const optional_text con_start_time = child_text(node, "CDPConStartTime");
    const optional_text start_time = child_text(node, "CDPStartTime");
    const optional_text timeout = child_text(node, "CDPTimeout");
    if (!schedule->local_lun || !schedule->mirror_lun || !con_start_time || !start_time || !timeout) {
        log_warning("Missing children node, ignore.");
        return 0;
    }
    schedule->cdp_con_start_time = scan_unsigned(con_start_time->c_str());
    schedule->cdp_start_time = scan_unsigned(start_time->c_str());
    schedule->cdp_timeout = scan_u32(timeout->c_str());
    catch_up(*schedule, now);
    list.splice(list.end(), loaded);
    return 0;
}
} // namespace

void catch_up(qel_cdpsch &schedule, int64_t now)
{
    const auto con_start_time = static_cast<int64_t>(schedule.cdp_con_start_time);
    if (con_start_time == 0 || schedule.cdp_timeout == 0 || con_start_time >= now)
        return;
    if (schedule.cdp_start_time <= static_cast<uint64_t>(now))
        schedule.cdp_start_time = cdp_next_slot(schedule.cdp_start_time, schedule.cdp_timeout, now);
}

int _cfg_xml_to_grp(const xmlNode *node, std::list<qel_group> *list)
{
    if (!node || !list) {
        log_error("Failed to load consistency group, null pointer error.");
        return -1;
    }
    if (!xml_is_named(node, "DiskGroupList")) {
        log_error("Unexpected node: %s.\n", reinterpret_cast<const char *>(node->name));
        return -1;
    }
    for (const xmlNode *child : xml_children{node}) {
        if (xml_is_named(child, "DiskGroup") && read_group(child, *list) < 0)
            return -1;
    }
    return 0;
}

int _cfg_xml_to_grp_disk(const xmlNode *node, std::list<qel_group_disk> *list)
{
    if (!node || !list) {
        log_error("Failed to load group disks, null pointer error.");
        return -1;
    }
    for (const xmlNode *child : xml_children{node}) {
        if (xml_is_named(child, "Disk") && read_member(child, *list) < 0)
            return -1;
    }
    return 0;
}

int _cfg_xml_to_cdpsch(const xmlNode *node, std::list<qel_cdpsch> *list)
{
    if (!node || !list) {
        log_error("Failed to load CDP schedules, null pointer error.");
        return -1;
    }
    if (!xml_is_named(node, "CDPScheduleList")) {
        log_error("Unexpected node: %s.", reinterpret_cast<const char *>(node->name));
        return -1;
    }
    const int64_t now = clock_wall();
    for (const xmlNode *child : xml_children{node}) {
        if (xml_is_named(child, "CDPSchedule") && read_schedule(child, now, *list) < 0)
            return -1;
    }
    return 0;
}
