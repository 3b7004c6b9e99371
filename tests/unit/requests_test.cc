#include "requests/agent.h"
#include "tests/support/captured_log.h"
#include "tests/unit/shown.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>

namespace {
// What a parser makes of a text, in words.
using parser = std::string(const char *text);

std::string manager(const char *text)
{
    const std::unique_ptr<qel_manager> m = xml_to_manager(text);
    return m ? shown(*m) : "refused";
}

std::string alias(const char *text)
{
    return shown(xml_to_alias(text));
}

std::string pair(const char *text)
{
    std::string server = "old", client = "old";
    xml_to_pair(&server, &client, text);
    return server + ' ' + client;
}

template <auto parse>
std::string two_texts(const char *text)
{
    std::string one = "old", other = "old";
    return parse(&one, &other, text) == 0 ? one + ' ' + other : "refused";
}

template <auto parse>
std::string list_of(const char *text)
{
    std::list<std::string> list = {"old"};
    std::string words = parse(text, &list) == 0 ? "" : "refused ";
    for (const std::string &word : list)
        words += word + ' ';
    return words;
}

template <auto parse>
std::string group(const char *text)
{
    bool cluster = true;
    const std::unique_ptr<qel_group> parsed = parse(text, &cluster);
    return parsed ? shown(*parsed) + (cluster ? " cluster" : "") : "refused";
}

template <auto parse>
std::string snap(const char *text)
{
    snap_request snap;
    if (parse(text, &snap) != 0)
        return "refused";
    return (snap.source_type == snap_disk ? "disk " : "group ") + shown(snap.source) +
           (snap.is_cluster ? " cluster" : "");
}

std::string cdpsch_list(const char *text)
{
    std::list<qel_cdpsch> list(1);
    cdp_schedule schedule;
    std::string words = "old";
    if (xml_to_cdpsch_list(text, &list, &schedule, &words) != 0)
        return "refused";
    for (const qel_cdpsch &disk : list)
        words += ' ' + shown(disk) + shown_times(disk);
    return words;
}

std::string instance_name(const char *text)
{
    bool cluster = true;
    const optional_text name = xml_to_instance_name(text, &cluster);
    return shown(name) + (cluster ? " cluster" : "");
}

std::string database(const char *text)
{
    bool cluster = true;
    const std::unique_ptr<qel_db_t> db = xml_to_KavApp(text, &cluster);
    if (!db)
        return "refused";
    return shown(db->instance_name) + ' ' + std::to_string(db->db_type) + ' ' + shown(db->db_name) + ' ' +
           shown(db->db_user) + ' ' + shown(db->db_passwd) + ' ' + std::to_string(db->archive_log) + ' ' +
           shown(db->oracle_home) + (cluster ? " cluster" : "");
}

#define REQUEST(body) "<Tessaron>" body "</Tessaron>"
#define BACKUPS(source_type)                                                                                 \
    REQUEST("<BackupList><Backup SrcGUID='l' KavGUID='kav_{m}'/><x/>"                                        \
            "<Backup SrcGUID='s' KavGUID='abc'/></BackupList><Schedule StartTime=' 100' "                    \
            "IntervalSeconds='60s' Source='g' SourceType='" source_type "'/>")

TEST(Requests, WhatIsThereIsTakenAndWhatIsMissingIsNamed)
{
    constexpr auto backup_grp = group<xml_to_backup_grp>, del_grp = group<xml_to_del_grp>;
    constexpr auto bg_info = two_texts<xml_to_bg_info>, volname = two_texts<xml_to_volname>;
    constexpr auto snap_guid = snap<xml_to_snap_guid>, agent_snap = snap<xml_kav_to_snapshot>;
    constexpr auto agent_grp = group<xml_kav_to_backup_grp>;
    constexpr auto bp_srcguid = list_of<xml_to_bp_srcguid>, snap_volumes = list_of<xml_to_snap_vol_guid>;
    const struct {
        parser *parse;
        const char *text, *result, *log = "";
    } cases[] = {
        {manager, REQUEST("\n <Server ID='g' IPs=' 10.0.0.1  x 10.0.0.2' TargetIqn='iqn'/>"),
         "g iqn [10.0.0.1 0.0.0.0 10.0.0.2]"},
        {manager, REQUEST("<Client/><Server ID='g'/>"), "- - []"},
        {manager, "<Tessaron/>", "- - []"},
        {manager, nullptr, "refused"},
        {alias, REQUEST("<Client Alias='caf\xc3\xa9 &amp; co'/>"), "caf\xc3\xa9 & co"},
        {alias, "<Tessaron/>", "-"},
        {alias, nullptr, "-", "3 Failed to parse xml document\n"},
        {alias, "<Tessaron>", "-", "3 Failed to parse xml document\n"},
        {alias, "<Other/>", "-", "3 Error: xml's root node must be 'Tessaron'\n"},
        {pair, REQUEST("<Other/><Client ID='new'/><Server/>"), "old new"},
        {pair, nullptr, "old old", "3 Invalid input parameter\n"},
        {backup_grp,
         REQUEST("<x/><BGCreate BGName='n' IsCluster='1'><SrcDisk SrcGUID='b'/><SrcDisk SrcGUID='a'/>"
                 "</BGCreate>"),
         "n b a cluster"},
        {backup_grp, REQUEST("<BGCreate IsCluster='true'/>"), "-"},
        {backup_grp, "<Tessaron/>", "refused", "3 Failed to retrieve node BGCreate.\n"},
        {agent_grp, REQUEST("<Group name='n' IsCluster='1'><Disk guid='b'/><Disk guid='a'/></Group>"),
         "n b a cluster"},
        {agent_grp, "<Tessaron/>", "refused", "3 Failed to retrieve node Group.\n"},
        {agent_grp, "<Other/>", "refused", "3 Error: xml's root node must be 'Tessaron'.\n"},
        {del_grp, REQUEST("<BGDelete BGName='n'/>"), "n"},
        {del_grp, REQUEST("<BGDelete IsCluster='1'/>"), "refused", "3 Missing property BGName.\n"},
        {del_grp, "<Tessaron/>", "refused", "3 Failed to retrieve node BGDelete\n"},
        {del_grp, "<", "refused", "3 Failed to parse xml buffer.\n"},
        {del_grp, "<Other/>", "refused", "3 Unexpected root element.\n"},
        {bg_info, REQUEST("<RemBGDisk BGName='g' SrcGUID='d'/>"), "d g"},
        {bg_info, REQUEST("<x/><RemBGDisk BGName='g' SrcGUID='d'/>"), "old old"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='kav_{abc}' IsCluster='1'/>"), "disk abc cluster"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='kav_{abc' IsCluster='0'/>"), "disk abc"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='kav_{}' IsCluster='0'/>"), "disk kav_{}"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='{abc}' IsCluster='0'/>"), "disk {abc}"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='abc' IsCluster='0'/>"), "disk abc"},
        {snap_guid, REQUEST("<Snap SourceType='00' Source='kav_{abc}' IsCluster='0'/>"), "group kav_{abc}"},
        {snap_guid, "<Tessaron/>", "refused", "3 Failed to retrieve node Snap from XML request.\n"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='a'/>"), "refused",
         "3 Failed to retrieve property IsCluster from Snap node.\n"},
        {agent_snap, REQUEST("<Snap SourceType='0' Source='kav_{abc}' IsCluster='1'/>"), "disk abc"},
        {agent_snap, REQUEST("<Snap SourceType='2' Source='g'/>"), "group g"},
        {agent_snap, REQUEST("<Snap SourceType='0'/>"), "refused",
         "3 Failed to retrieve property Source from Snap node.\n"},
        {agent_snap, "<Tessaron/>", "refused", "3 Failed to retrieve node Snap.\n"},
        {agent_snap, "<Other/>", "refused", "3 Error :xml's root node must be 'Tessaron'.\n"},
        {agent_snap, nullptr, "refused"},
        {snap_volumes, REQUEST("<Snap SnapVolGUID='kav_{a}'/><Other/><Snap/><Snap SnapVolGUID='b'/>"), "a b ",
         "3 Node Snap doesn't contain SnapVolGUID property, ignore!\n"},
        {bp_srcguid, REQUEST("<BackupList><Backup SrcGUID='a'/><Backup SrcGUID='b'/></BackupList>"),
         "old a b "},
        {bp_srcguid, "<Tessaron/>", "refused old ", "3 Failed to retrieve node BackupList.\n"},
        {bp_srcguid, nullptr, "refused old ", "3 Failed to parse XML request, null pointer.\n"},
        {bp_srcguid, "<", "refused old ", "3 Failed to parse XML request.\n"},
        {cdpsch_list, BACKUPS("2"), "old ->-@0/100/60 l>m@0/100/60 s>@0/100/60", "4 Unknown backup node.\n"},
        {cdpsch_list, BACKUPS("1"), "g ->-@0/100/60 l>m@0/100/60 s>@0/100/60", "4 Unknown backup node.\n"},
        {cdpsch_list, REQUEST("<BackupList/>"), "refused",
         "3 Failed to retrieve node BackupList or Schedule.\n"},
        {cdpsch_list, REQUEST("<BackupList/><Schedule StartTime='1' IntervalSeconds='1' Source=''/>"),
         "refused", "3 Failed to get SourceType property.\n"},
        {cdpsch_list, nullptr, "refused", "3 Error, empty XML doc.\n"},
        {cdpsch_list, "<Other/>", "refused", "3 Error: Unexpected root element.\n"},
        {volname, REQUEST("<Backup SrcGUID='s' DestGUID='kav_{abc}'/>"), "s abc"},
        {volname, REQUEST("<!-- first --><Backup SrcGUID='a'/>"), "refused"},
        {instance_name, REQUEST("<DBCfgDel InstanceName='i'/>"), "i cluster"},
        {instance_name, REQUEST("<DBCfgDel IsCluster='2'/>"), "-"},
        {database,
         REQUEST("<DBSet DBType='0' DBUser='u' DBPasswd='p' InstanceName='i' ArchiveLog='1x' OracleHome='/o' "
                 "IsCluster='1'/>"),
         "i 1 oracle u p 1 /o cluster"},
        {database, REQUEST("<DBSet DBType='1'/>"), "- 0 - - - 0 -"},
        {database, "<Tessaron/>", "refused", "3 Failed to retrieve DBSet node.\n"},
    };
    for (const auto &row : cases) {
        take_log();
        const std::string text = row.text ? row.text : "(null)";
        EXPECT_EQ(row.parse(row.text), row.result) << text;
        EXPECT_EQ(take_log(), row.log) << text;
    }
}

void parse_for_200_ms(parser *parse, const char *text)
{
    log_level = LOG_ERR;
    itimerval limit{};
    limit.it_value.tv_usec = 200'000;
    setitimer(ITIMER_REAL, &limit, nullptr);
    parse(text);
    _exit(0);
}

// The endless repetition is what the system does. It is seen by a timer that ends the child process.
TEST(RequestsDeathTest, ChildThatIsNoMemberIsNeverPassed)
{
    const std::pair<parser *, const char *> cases[] = {
        {group<xml_to_backup_grp>, REQUEST("<BGCreate><Disk SrcGUID='a'/></BGCreate>")},
        {group<xml_to_backup_grp>, REQUEST("<BGCreate><SrcDisk/></BGCreate>")},
        {group<xml_kav_to_backup_grp>, REQUEST("<Group><Disk SrcGUID='a'/></Group>")},
        {list_of<xml_to_bp_srcguid>, REQUEST("<BackupList><Disk SrcGUID='a'/></BackupList>")},
        {list_of<xml_to_bp_srcguid>, REQUEST("<BackupList><Backup/></BackupList>")},
    };
    for (const auto &[parse, text] : cases)
        EXPECT_EXIT(parse_for_200_ms(parse, text), testing::KilledBySignal(SIGALRM), "") << text;
}

TEST(Requests, MirrorIsFoundByTheExactLocalGuid)
{
    qel_inventory_t inventory;
    inventory.backups.emplace_back().src_guid = "ab";
    inventory.backups.emplace_back().src_guid = "a";
    inventory.backups.back().dest_guid = "mirror";
    EXPECT_EQ(get_mirror_guid_of_local("a", &inventory), "mirror");
    EXPECT_EQ(get_mirror_guid_of_local("A", &inventory), std::nullopt);
}
} // namespace
