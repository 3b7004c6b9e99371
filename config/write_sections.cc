#include "base/log.h"
#include "client/addresses.h"
#include "config/sections.h"

#include <new>
#include <string>

namespace {
void add_addresses(xmlNode *node, const char *name, const std::list<qel_addr> &list)
{
    for (const qel_addr &entry : list)
        xml_add_element(node, name, dotted(entry.addr).c_str());
}

void add_members(xmlNode *node, const std::list<qel_group_disk> &list)
{
    for (const qel_group_disk &member : list)
        xml_add_attribute(xml_add_element(node, "Disk"), "DiskGUID", member.disk_guid);
}
} // namespace

xml_node _cfg_filter_to_xml(const std::list<qel_addr> &list)
{
    try {
        xml_node node = xml_new_element("IPAddrFilter");
        add_addresses(node.get(), "IPAddr", list);
        return node;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

xml_node _cfg_mngr_to_xml(const qel_manager *manager)
{
    if (!manager) {
        log_debug("Null manager, no manager node generated.");
        return nullptr;
    }
    try {
        xml_node node = xml_new_element("Manager");
        xml_add_element(node.get(), "ManagerGUID", c_text(manager->guid));
        if (manager->target_iqn)
            xml_add_element(node.get(), "TargetIQN", c_text(manager->target_iqn));
        add_addresses(node.get(), "ManagerIPAddr", manager->ip_list);
        return node;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

xml_node _cfg_backup_grp_to_xml(const qel_group &group)
{
    const char *message = "Failed to create node DiskGroup.";
    try {
        xml_node node = xml_new_element("DiskGroup");
        xml_add_attribute(node.get(), "GroupName", group.name);
        xml_add_unsigned(node.get(), "CDPConStartTime", group.cdp_con_start_time);
        xml_add_unsigned(node.get(), "CDPStartTime", group.cdp_start_time);
        xml_add_unsigned(node.get(), "CDPTimeout", group.cdp_timeout);
        message = "Failed to create node Disk.";
        add_members(node.get(), group.member_list);
        return node;
    } catch (const std::bad_alloc &) {
        log_error("%s", message);
        return nullptr;
    }
}

xml_node _cfg_cdpsch_to_xml(const qel_cdpsch &schedule)
{
    try {
        xml_node node = xml_new_element("CDPSchedule");
        const std::string con_start_time = std::to_string(schedule.cdp_con_start_time);
        const std::string start_time = std::to_string(schedule.cdp_start_time);
        const std::string interval = std::to_string(schedule.cdp_timeout);
        log_info(
            "Ready to write new schedule into config, console start time: %s, start_time: %s, interval: %s.",
            con_start_time.c_str(), start_time.c_str(), interval.c_str());
        xml_add_element(node.get(), "CDPLocalLUN", c_text(schedule.local_lun));
        xml_add_element(node.get(), "CDPMirrorLUN", c_text(schedule.mirror_lun));
        xml_add_element(node.get(), "CDPConStartTime", con_start_time.c_str());
        xml_add_element(node.get(), "CDPStartTime", start_time.c_str());
        xml_add_element(node.get(), "CDPTimeout", interval.c_str());
        return node;
    } catch (const std::bad_alloc &) {
        log_error("Failed to create node CDPSchedule.");
        return nullptr;
    }
}
