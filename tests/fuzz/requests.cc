// Every request document. Where a tool writes the same document, the tool's is read back as the same.
#include "base/xml.h"
#include "client/addresses.h"
#include "requests/backups.h"
#include "requests/channels.h"
#include "requests/databases.h"
#include "requests/document.h"
#include "requests/groups.h"
#include "requests/membership.h"
#include "requests/schedules.h"
#include "requests/snapshots.h"
#include "tests/fuzz/fuzz.h"
#include "tests/unit/shown.h"
#include "tools/common/bodies.h"
#include "tools/qelc/bodies/group.h"
#include "tools/qelc/bodies/host.h"
#include "tools/qelc/bodies/protection.h"

#include <algorithm>

namespace {
constexpr char read_back[] = "a document of the tools is read back";

// Two parsers are required to repeat for ever when a child is foreign: that of groups, in both of its forms,
// and that of mirrors.
bool repeats(const char *text, const char *list, const char *member, const char *guid)
{
    const xml_doc doc = xml_parse_text(text);
    const xmlNode *root = doc ? xml_root(doc) : nullptr;
    const xmlNode *node = root && xml_is_named(root, "Tessaron") ? find_child(root, list) : nullptr;
    for (const xmlNode *child : xml_children{node}) {
        if (!xml_is_named(child, member) || !xml_attribute(child, guid))
            return true;
    }
    return false;
}

bool is_ascii(const std::string &text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

void read_group(const char *text)
{
    bool is_cluster = false;
    if (repeats(text, "BGCreate", "SrcDisk", "SrcGUID"))
        return;
    const auto group = xml_to_backup_grp(text, &is_cluster);
    if (!group || !group->name)
        return;
    std::vector<std::string> disks;
    for (const qel_group_disk &member : group->member_list)
        disks.push_back(member.disk_guid.value());
    const auto again = xml_to_backup_grp(group_document(*group->name, disks).c_str(), &is_cluster);
    require(again && shown(*again) == shown(*group), read_back);
}

void read_agents_group(const char *text)
{
    bool is_cluster = false;
    if (repeats(text, "Group", "Disk", "guid"))
        return;
    if (const auto group = xml_kav_to_backup_grp(text, &is_cluster)) {
        for (const qel_group_disk &member : group->member_list)
            require(member.disk_guid.has_value(), "a member has a GUID");
    }
}

void read_mirrors(const char *text)
{
    std::list<std::string> disks, again;
    if (repeats(text, "BackupList", "Backup", "SrcGUID") || xml_to_bp_srcguid(text, &disks) != 0)
        return;
    require(xml_to_bp_srcguid(disk_list_document({disks.begin(), disks.end()}).c_str(), &again) == 0 &&
                again == disks,
            read_back);
}

void read_backups(const char *text)
{
    const std::string no_group(1, '\x01'); // which no document can hold
    std::list<qel_cdpsch> list, again;
    cdp_schedule schedule, schedule_again;
    std::string group = no_group, group_again = no_group;
    if (xml_to_cdpsch_list(text, &list, &schedule, &group) != 0)
        return;
    std::vector<mirror_pair> pairs;
    for (const qel_cdpsch &disk : list) {
        require(disk.cdp_start_time == schedule.start_time && disk.cdp_timeout == schedule.interval,
                "every disk gets the schedule");
        // A mirror is cut out by position, which may cut a character of several bytes.
        if (!disk.local_lun || !disk.mirror_lun || !is_ascii(*disk.mirror_lun))
            return;
        pairs.push_back({*disk.local_lun, *disk.mirror_lun});
    }
    const std::string document =
        protection_document(pairs, {group != no_group, group}, {schedule.start_time, schedule.interval});
    require(xml_to_cdpsch_list(document.c_str(), &again, &schedule_again, &group_again) == 0 &&
                group == group_again &&
                std::equal(list.begin(), list.end(), again.begin(), again.end(),
                           [](const qel_cdpsch &one, const qel_cdpsch &other) {
                               return shown(one) + shown_times(one) == shown(other) + shown_times(other);
                           }),
            read_back);
}

void read_channel(const char *text)
{
    qel_iscsi_node target, initiator, target_again, initiator_again;
    if (xml_to_iscsinode(&target, &initiator, text) != 0)
        return;
    const std::string document =
        channel_document({*initiator.iqn, dotted(initiator.ip), *target.iqn,
                          dotted(target.ip) + ":" + std::to_string(ntohs(target.port))});
    require(xml_to_iscsinode(&target_again, &initiator_again, document.c_str()) == 0 &&
                target_again.iqn == target.iqn && target_again.ip == target.ip &&
                target_again.port == target.port && initiator_again.iqn == initiator.iqn &&
                initiator_again.ip == initiator.ip,
            read_back);
}

void read_leaving_disk(const char *text)
{
    std::string disk, group, disk_again, group_again;
    if (xml_to_bg_info(&disk, &group, text) != 0)
        return;
    require(xml_to_bg_info(&disk_again, &group_again, group_member_document(group, disk).c_str()) == 0 &&
                disk_again == disk && group_again == group,
            read_back);
}

void read_manager(const char *text)
{
    const auto manager = xml_to_manager(text);
    if (!manager || !manager->guid)
        return;
    manager_record record{*manager->guid, {}, manager->target_iqn};
    for (const qel_addr &address : manager->ip_list)
        record.ips.push_back(dotted(address.addr));
    const auto again = xml_to_manager(manager_document(record).c_str());
    require(again && shown(*again) == shown(*manager), read_back);
}

void read_alias(const char *text)
{
    if (const optional_text alias = xml_to_alias(text))
        require(xml_to_alias(alias_document(*alias).c_str()) == alias, read_back);
}

void read_pair(const char *text)
{
    std::string server, client, server_again, client_again;
    xml_to_pair(&server, &client, text);
    xml_to_pair(&server_again, &client_again, pair_document(server, client).c_str());
    require(server_again == server && client_again == client, read_back);
}

void read_schedule(const char *element, const char *text)
{
    schedule_request wanted, again;
    if (xml_to_schedule(text, element, &wanted) != 0)
        return;
    const std::string document =
        schedule_document({wanted.is_group, wanted.source}, {wanted.start_time, wanted.interval});
    require(xml_to_schedule(document.c_str(), "Backup", &again) == 0 && again.is_group == wanted.is_group &&
                again.source == wanted.source && again.start_time == wanted.start_time &&
                again.interval == wanted.interval,
            read_back);
}

// These have nothing to compare with: they must come back.
struct {
    bool is_cluster = false;
    snap_request snap;
    std::string source, destination;
    std::list<optional_text> disks;
    std::list<std::string> volumes;
} unused;

constexpr void (*readers[])(const char *) = {
    read_group,
    read_agents_group,
    read_mirrors,
    read_backups,
    [](const char *text) { xml_to_volname(&unused.source, &unused.destination, text); },
    [](const char *text) { unused.disks.clear(), xml_to_released_disks(text, &unused.disks); },
    read_channel,
    [](const char *text) { xml_to_KavApp(text, &unused.is_cluster); },
    [](const char *text) { xml_to_instance_name(text, &unused.is_cluster); },
    read_leaving_disk,
    [](const char *text) { xml_to_del_grp(text, &unused.is_cluster); },
    read_manager,
    read_alias,
    read_pair,
    [](const char *text) { read_schedule("Backup", text); },
    [](const char *text) { read_schedule("Snap", text); },
    [](const char *text) { xml_to_snap_guid(text, &unused.snap); },
    [](const char *text) { xml_kav_to_snapshot(text, &unused.snap); },
    [](const char *text) { xml_to_snap_vol_guid(text, &unused.volumes); },
};
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready = (xml_init(), true);
    static_cast<void>(is_ready);
    const fuzz_input input(data, size, std::size(readers));
    readers[input.choice](input.bytes.c_str());
    return 0;
}
