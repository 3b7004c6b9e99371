#include "client/report.h"

#include "base/log.h"
#include "base/xml.h"
#include "client/addresses.h"
#include "client/host.h"
#include "client/report_trace.h"
#include "client/report_values.h"

namespace {
void add_host_attributes(xmlNode *node, const qel_inventory_t &inventory)
{
    xml_add_attribute(node, "Name", inventory.hostname);
    xml_add_attribute(node, "IPs", join_addresses(inventory.ips));
    xml_add_attribute(node, "HostName", get_hostname());
    xml_add_number(node, "SystemType", static_cast<int32_t>(inventory.systype));
    xml_add_attribute(node, "SysVersion", inventory.osver);
    xml_add_attribute(node, "ID", inventory.id);
    const std::string bits = dboem_to_bits(inventory.dboem);
    log_debug("DBOEM: %s", bits.c_str());
    xml_add_attribute(node, "DBOEM", bits);
}

void add_partition(xmlNode *disk_node, const qel_part_t &part)
{
    xmlNode *node = xml_add_element(disk_node, "Partition");
    xml_add_attribute(node, "Name", part.name);
    xml_add_number(node, "Index", part.index);
    xml_add_unsigned(node, "Size", part.size);
    xml_add_unsigned(node, "Used", part.used);
    xml_add_attribute(node, "Guid", part.guid);
    xml_add_attribute(node, "FS", part.fs);
    xml_add_number(node, "State", part.state);
}

void add_disk(xmlNode *list_node, const qel_disk_t &disk, const mount_table &mounts)
{
    xmlNode *node = xml_add_element(list_node, "Disk");
    xml_add_attribute(node, "Name", disk.name);
    xml_add_unsigned(node, "Size", disk.size);
    xml_add_number(node, "Type", static_cast<int32_t>(disk.type));
    xml_add_unsigned(node, "Used", disk.used);
    xml_add_attribute(node, "Guid", disk.guid);
    xml_add_attribute(node, "FS", disk.fs);
    xml_add_number(node, "State", disk.state);
    xml_add_attribute(node, "Vendor", disk.vendor);
    xml_add_number(node, "SysDisk", disk.path ? is_boot_dev(mounts, disk.path->c_str()) : 0);
    for (const qel_part_t &part : disk.parts)
        add_partition(node, part);
}

void add_disk_list(xmlNode *client_node, const qel_inventory_t &inventory)
{
    xmlNode *list_node = xml_add_element(client_node, "DiskList");
    const mount_table mounts = read_mount_table();
    const mirror_guids mirrors(inventory.backups);
    for (const qel_disk_t &disk : inventory.disks) {
        if (disk.state == 0)
            continue;
        if (mirrors.hold(disk)) {
            log_debug("'%s' is twinvault backup device, ignore it", printable(disk.path));
            continue;
        }
        add_disk(list_node, disk, mounts);
    }
    xml_add_element(list_node, "Volume");
}

void add_channel_list(xmlNode *client_node, const qel_inventory_t &inventory)
{
    xmlNode *list_node = xml_add_element(client_node, "ChannelList");
    for (const qel_chn_t &channel : inventory.chns) {
        xmlNode *node = xml_add_element(list_node, "Channel");
        if (channel.type == chn_iscsi) {
            xml_add_attribute(node, "Type", "ISCSI");
            xml_add_attribute(node, "InitiatorIqn", channel.initiator);
            xml_add_attribute(node, "TargetIqn", channel.target);
        } else if (channel.type == chn_fc) {
            xml_add_attribute(node, "Type", "FC");
            xml_add_attribute(node, "InitiatorWWN", colon_separated(channel.initiator));
            xml_add_attribute(node, "TargetWWN", colon_separated(channel.target));
        }
    }
}

void add_backup_list(xmlNode *client_node, const qel_inventory_t &inventory)
{
    xmlNode *list_node = xml_add_element(client_node, "BackupList");
    for (const qel_backup_t &backup : inventory.backups) {
        xmlNode *node = xml_add_element(list_node, "Backup");
        xml_add_number(node, "Type", static_cast<int32_t>(backup.type));
        xml_add_number(node, "State", static_cast<int32_t>(backup.state));
        xml_add_number(node, "Percent", backup.percent);
        xml_add_number(node, "Speed", backup.speed);
        xml_add_attribute(node, "SrcGUID", backup.src_guid);
        xml_add_attribute(node, "SrcName", backup.src_name);
        xml_add_attribute(node, "DestGUID", wrap_mirror_guid(backup.dest_guid));
        xml_add_unsigned(node, "StartTime", backup.start_time);
        xml_add_unsigned(node, "IntervalSeconds", backup.interval);
        xml_add_attribute(node, "SrcDiskGUID", backup.src_guid);
    }
}

void add_database_list(xmlNode *client_node, const qel_inventory_t &inventory)
{
    xmlNode *list_node = xml_add_element(client_node, "DataBaseList");
    xml_add_attribute(list_node, "ConfiguredBy", "0");
    for (const qel_db_t &database : inventory.dbs) {
        xmlNode *node = xml_add_element(list_node, "DataBase");
        xml_add_attribute(node, "Type", database_type(database));
        xml_add_attribute(node, "OracleHome", database.oracle_home);
        xml_add_attribute(node, "InstanceName", database.instance_name);
        xml_add_number(node, "ArchiveLog", database.archive_log);
    }
}

// The first disk of the inventory with that GUID. Each disk without GUID before it is logged at every search,
// since it may be the one that is meant.
const qel_disk_t *find_disk(const qel_inventory_t &inventory, const optional_text &guid)
{
    for (const qel_disk_t &disk : inventory.disks) {
        if (!disk.guid)
            log_warning("Error, unable to read the GUID of disk %s.", printable(disk.name));
        else if (disk.guid == guid)
            return &disk;
    }
    return nullptr;
}

void add_group_list(xmlNode *client_node, const qel_inventory_t &inventory, const qel_t &client)
{
    const std::lock_guard reading(client.content_lock);
    xmlNode *list_node = xml_add_element(client_node, "GroupList");
    for (const qel_group &group : client.group_list) {
        xmlNode *node = xml_add_element(list_node, "Group");
        xml_add_attribute(node, "GroupName", group.name);
        xml_add_unsigned(node, "StartTimestamp", group.cdp_con_start_time);
        xml_add_unsigned(node, "IntervalTime", group.cdp_timeout);
        xml_add_attribute(node, "IsCluster", "0");
        xml_add_attribute(node, "DiskType", "1");
        xml_add_attribute(node, "Active", "1");
        for (const qel_group_disk &member : group.member_list) {
            xmlNode *disk_node = xml_add_element(node, "Disk");
            xml_add_attribute(disk_node, "GUID", member.disk_guid);
            if (const qel_disk_t *disk = find_disk(inventory, member.disk_guid))
                xml_add_attribute(disk_node, "Name", disk->name);
        }
    }
}
} // namespace

std::string client_to_xml(const qel_inventory_t &inventory, const qel_t *client, int full)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *root = xml_root(doc);
    xml_add_attribute(root, "ClientType", "0");
    xml_add_attribute(root, "NbClients", "1");
    xml_add_attribute(root, "ClusterName", "");
    xml_add_attribute(root, "ClusterID", "");

    xmlNode *client_node = xml_add_element(root, "Client");
    add_host_attributes(client_node, inventory);
    if (full) {
        xml_add_attribute(client_node, "Alias", inventory.alias);
        add_disk_list(client_node, inventory);
        add_channel_list(client_node, inventory);
        add_backup_list(client_node, inventory);
        add_database_list(client_node, inventory);
        if (client)
            add_group_list(client_node, inventory, *client);
    }
    if (log_enabled(LOG_DEBUG))
        trace_report(inventory, full);
    return xml_to_text(doc);
}

std::string dboem_to_bits(int32_t value)
{
    std::string bits(32, '0');
    for (size_t i = 0; i < bits.size(); ++i) {
        if (static_cast<uint32_t>(value) >> (31 - i) & 1)
            bits[i] = '1';
    }
    return bits;
}
