#include "bench/fault_cases.h"

#include "protocol/commands.h"

namespace {
constexpr char far_future[] = "4102444800"; // 2100-01-01 00:00 UTC

std::string in_root(const std::string &content)
{
    return "<Tessaron>" + content + "</Tessaron>";
}

std::string group_element(const std::string &name, const std::string &times, const std::string &disk)
{
    return "<DiskGroup GroupName=\"" + name + "\" " + times + "><Disk DiskGUID=\"" + disk +
           "\"/></DiskGroup>";
}

// Of G1 and L3: the start and the interval.
std::string lists(const std::string &start, const std::string &interval)
{
    const std::string times = R"(CDPConStartTime=")" + start + R"(" CDPStartTime=")" + start +
                              R"(" CDPTimeout=")" + interval + "\"";
    return "<DiskGroupList>" + group_element("G1", times, "L1") +
           group_element("G2", R"(CDPConStartTime="0" CDPStartTime="0" CDPTimeout="0")", "L2") +
           "</DiskGroupList><CDPScheduleList><CDPSchedule><CDPLocalLUN>L3</CDPLocalLUN>"
           "<CDPMirrorLUN>M3</CDPMirrorLUN><CDPConStartTime>" +
           start + "</CDPConStartTime><CDPStartTime>" + start + "</CDPStartTime><CDPTimeout>" + interval +
           "</CDPTimeout></CDPSchedule></CDPScheduleList>";
}

std::string backups(const std::string &disk)
{
    return in_root("<BackupList><Backup SrcGUID=\"" + disk + "\"/></BackupList>");
}

// A group's or, with type 0, a disk's.
std::string snap(int type, const std::string &source)
{
    return in_root("<Snap SourceType=\"" + std::to_string(type) + "\" Source=\"" + source +
                   "\" IsCluster=\"0\"/>");
}

std::string schedule(const std::string &element, int type, const std::string &source)
{
    return in_root("<" + element + " SourceType=\"" + std::to_string(type) + "\" Source=\"" + source +
                   "\"><Schedule StartTime=\"" + far_future + "\" IntervalSeconds=\"7200\"/></" + element +
                   ">");
}

std::string group(const std::string &name, const std::string &disk)
{
    return in_root("<BGCreate BGName=\"" + name + "\" IsCluster=\"0\"><SrcDisk SrcGUID=\"" + disk +
                   "\"/></BGCreate>");
}

std::string agent_group(const std::string &name, const std::string &disk)
{
    return in_root("<Group name=\"" + name + "\" IsCluster=\"0\"><Disk guid=\"" + disk + "\"/></Group>");
}

std::string manager(const std::string &address)
{
    return in_root("<Server ID=\"M-1\" IPs=\"" + address + "\" TargetIqn=\"iqn.target\"/>");
}
} // namespace

std::string config_of(host_state state)
{
    const bool is_due = state == host_state::due;
    const std::string target = state == host_state::no_target ? "" : "<TargetIQN>iqn.target</TargetIQN>";
    const std::string appointed = "<Manager><ManagerGUID>M-1</ManagerGUID>" + target +
                                  "<ManagerIPAddr>127.0.0.1</ManagerIPAddr></Manager>";
    return in_root("<ClientGUID>C-1</ClientGUID><ClientAlias>" + std::string(host_alias) +
                   "</ClientAlias><ClientPort>9410</ClientPort><ServerPort>9411</ServerPort><IPAddrFilter/>" +
                   (state == host_state::free ? "" : appointed) +
                   lists(is_due ? "1000000000" : far_future, is_due ? "1" : "3600"));
}

std::string relationships_of(host_state state)
{
    std::string lines;
    for (const char *number : {"1", "2", "3"}) {
        if (state != host_state::unprotected)
            lines += std::string("relationship\npercent 100\nsync_state Sync Finished\nstatus Running\n") +
                     "src_link Up\ndest_link Up\nsrc_path /dev/sda" + number + "\nsrc_guid L" + number +
                     "\ndest_path /dev/m" + number + "\ndest_guid M" + number + "\n";
    }
    return lines;
}

const std::vector<fault_case> &fault_cases()
{
    using enum host_state;
    static const std::vector<fault_case> cases = {
        {"scan_client", command::scan_client, "", free},
        {"add_client", command::add_client, manager("127.0.0.1"), free},
        {"del_client", command::del_client, in_root(R"(<Server ID="M-1"/><Client ID="C-1"/>)"), unprotected},
        {"add_backup", command::add_backup,
         in_root(R"(<BackupList><Backup SrcGUID="L4" KavGUID="kav_{M4}"/></BackupList>)"
                 R"(<Schedule SourceType="0" Source="L4" StartTime=")" +
                 std::string(far_future) + R"(" IntervalSeconds="3600"/>)")},
        {"establish_channels", command::establish_channels,
         in_root(R"(<Channel InitiatorIqn="iqn.host" TargetIqn="iqn.new"><Path InitiatorIP="10.77.0.1" )"
                 R"(TargetIP="127.0.0.1"/></Channel>)"),
         no_target},
        {"get_client_info", command::get_client_info},
        {"rename_client", command::rename_client, in_root(R"(<Client Alias="another name of the host"/>)")},
        {"del_backup", command::del_backup, backups("L1")},
        {"set_cdp_schedule, group", command::set_cdp_schedule, schedule("Backup", 1, "G1")},
        {"set_cdp_schedule, disk", command::set_cdp_schedule, schedule("Backup", 0, "L3")},
        {"set_cdp_schedule, new", command::set_cdp_schedule, schedule("Backup", 0, "L2")},
        {"init_mirror", command::init_mirror, backups("L1")},
        {"cancel_init_mirror", command::cancel_init_mirror, backups("L1")},
        {"create_snapshot, disk", command::create_snapshot, snap(0, "L1")},
        {"create_snapshot, group", command::create_snapshot, snap(1, "G1")},
        {"snap_restore", command::snap_restore, in_root(R"(<Snap SnapVolGUID="M1"/>)")},
        {"db_set", command::db_set, in_root(R"(<DBSet InstanceName="db-2"/>)")},
        {"bg_create", command::bg_create, group("G3", "L4")},
        {"rem_disk_from_bg", command::rem_disk_from_bg, in_root(R"(<RemBGDisk BGName="G1" SrcGUID="L1"/>)")},
        {"dbcfg_del", command::dbcfg_del, in_root(R"(<DBCfgDel InstanceName="db-1"/>)")},
        {"refresh_server", command::refresh_server, manager("127.0.0.2")},
        {"rescan_devices", command::rescan_devices},
        {"nop_command", command::nop_command},
        {"del_backup_grp", command::del_backup_grp, in_root(R"(<BGDelete BGName="G1" IsCluster="0"/>)")},
        {"add_disk_to_grp", command::add_disk_to_grp, group("G1", "L3")},
        {"kav_create_cdp, disk", command::kav_create_cdp, snap(0, "L1")},
        {"kav_create_cdp, group", command::kav_create_cdp, snap(1, "G1")},
        {"kav_set_cdp_schedule, group", command::kav_set_cdp_schedule, schedule("Snap", 1, "G2")},
        {"kav_set_cdp_schedule, disk", command::kav_set_cdp_schedule, schedule("Snap", 0, "L3")},
        {"kav_get_cdp_schedule, group", command::kav_get_cdp_schedule, snap(1, "G1")},
        {"kav_get_cdp_schedule, disk", command::kav_get_cdp_schedule, snap(0, "L3")},
        {"kav_del_cdp_schedule, group", command::kav_del_cdp_schedule, snap(1, "G1")},
        {"kav_del_cdp_schedule, disk", command::kav_del_cdp_schedule, snap(0, "L3")},
        {"kav_create_group", command::kav_create_group, agent_group("G3", "L4")},
        {"kav_get_group", command::kav_get_group},
        {"kav_delete_group", command::kav_delete_group, agent_group("G1", "L1")},
        {"kav_add_member", command::kav_add_member, agent_group("G1", "L3")},
        {"kav_del_member", command::kav_del_member, agent_group("G1", "L1")},
        {"local_list", command::local_list},
        {"local_withdraw", command::local_withdraw, "", free},
        {"heartbeat and scan", 0},
        {"snapshots of schedules", 0, "", due, 5},
    };
    return cases;
}
