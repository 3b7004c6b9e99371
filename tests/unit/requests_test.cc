#include "client/addresses.h"
#include "requests/manager.h"
#include "tests/unit/captured_log.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>

namespace {
using list_of_texts = std::list<std::string>;

using accepts = bool(const char *text);

bool backup_grp(const char *text)
{
    bool cluster;
    return xml_to_backup_grp(text, &cluster) != nullptr;
}

bool bp_srcguid(const char *text)
{
    list_of_texts list;
    return xml_to_bp_srcguid(text, &list) == 0;
}

bool del_grp(const char *text)
{
    bool cluster;
    return xml_to_del_grp(text, &cluster) != nullptr;
}

bool snap_guid(const char *text)
{
    snap_request snap;
    return xml_to_snap_guid(text, &snap) == 0;
}

bool cdpsch_list(const char *text)
{
    std::list<qel_cdpsch> list;
    cdp_schedule schedule;
    std::string group;
    return xml_to_cdpsch_list(text, &list, &schedule, &group) == 0;
}

bool alias(const char *text)
{
    return xml_to_alias(text).has_value();
}

bool volname(const char *text)
{
    std::string source, destination;
    return xml_to_volname(&source, &destination, text) == 0;
}

TEST(Requests, RefusalsAreLoggedInTheirOwnWords)
{
    const struct {
        accepts *parser;
        const char *body, *log;
    } cases[] = {
        {alias, nullptr, "3 Failed to parse xml document\n"},
        {alias, "<Tessaron>", "3 Failed to parse xml document\n"},
        {alias, "<Other/>", "3 Error: xml's root node must be 'Tessaron'\n"},
        {alias, "<Tessaron/>", ""},
        {backup_grp, "<Tessaron/>", "3 Failed to retrieve node BGCreate.\n"},
        {bp_srcguid, nullptr, "3 Failed to parse XML request, null pointer.\n"},
        {bp_srcguid, "<", "3 Failed to parse XML request.\n"},
        {bp_srcguid, "<Tessaron/>", "3 Failed to retrieve node BackupList.\n"},
        {del_grp, "<", "3 Failed to parse xml buffer.\n"},
        {del_grp, "<Other/>", "3 Unexpected root element.\n"},
        {del_grp, "<Tessaron/>", "3 Failed to retrieve node BGDelete\n"},
        {del_grp, "<Tessaron><BGDelete IsCluster='1'/></Tessaron>", "3 Missing property BGName.\n"},
        {snap_guid, "<Tessaron/>", "3 Failed to retrieve node Snap from XML request.\n"},
        {snap_guid, "<Tessaron><Snap SourceType='0' Source='a'/></Tessaron>",
         "3 Failed to retrieve property IsCluster from Snap node.\n"},
        {cdpsch_list, nullptr, "3 Error, empty XML doc.\n"},
        {cdpsch_list, "<Other/>", "3 Error: Unexpected root element.\n"},
        {cdpsch_list, "<Tessaron><BackupList/></Tessaron>",
         "3 Failed to retrieve node BackupList or Schedule.\n"},
        {cdpsch_list,
         "<Tessaron><BackupList/><Schedule StartTime='1' IntervalSeconds='1' Source=''/></Tessaron>",
         "3 Failed to get SourceType property.\n"},
        {volname, "<Tessaron><!-- first --><Backup SrcGUID='a'/></Tessaron>", ""},
    };
    for (const auto &row : cases) {
        take_log();
        EXPECT_FALSE(row.parser(row.body)) << row.log;
        EXPECT_EQ(take_log(), row.log);
    }
}

TEST(Requests, ManagerIsReadFromTheFirstChildOnly)
{
    const std::unique_ptr<qel_manager> m = xml_to_manager(
        "<Tessaron>\n <Server ID='g' IPs=' 10.0.0.1  x 10.0.0.2' TargetIqn='iqn'/></Tessaron>");
    ASSERT_TRUE(m);
    EXPECT_EQ(m->guid, "g");
    EXPECT_EQ(m->target_iqn, "iqn");
    EXPECT_EQ(join_addresses(m->ip_list), "10.0.0.1 0.0.0.0 10.0.0.2");
    for (const char *text : {"<Tessaron><Client/><Server ID='g'/></Tessaron>", "<Tessaron/>"}) {
        const std::unique_ptr<qel_manager> empty = xml_to_manager(text);
        ASSERT_TRUE(empty) << text;
        EXPECT_EQ(empty->guid, std::nullopt);
    }
    EXPECT_EQ(xml_to_alias("<Tessaron><Client Alias='caf\xc3\xa9 &amp; co'/></Tessaron>"),
              "caf\xc3\xa9 & co");
}

TEST(Requests, PairLeavesAnUnnamedSideAlone)
{
    std::string server = "s", client = "c";
    xml_to_pair(&server, &client, "<Tessaron><Other/><Client ID='new'/><Server/></Tessaron>");
    EXPECT_EQ(server, "s");
    EXPECT_EQ(client, "new");
    take_log();
    xml_to_pair(&server, nullptr, "<Tessaron/>");
    EXPECT_EQ(take_log(), "3 Invalid input parameter\n");
}

TEST(Requests, GroupHasItsMembersInOrder)
{
    bool cluster = false;
    std::unique_ptr<qel_group> group = xml_to_backup_grp("<Tessaron><x/><BGCreate BGName='n' IsCluster='1'>"
                                                         "<SrcDisk SrcGUID='b'/><SrcDisk SrcGUID='a'/>"
                                                         "</BGCreate></Tessaron>",
                                                         &cluster);
    ASSERT_TRUE(group);
    EXPECT_EQ(group->name, "n");
    EXPECT_TRUE(cluster);
    ASSERT_EQ(group->member_list.size(), 2u);
    EXPECT_EQ(group->member_list.front().disk_guid, "b");
    group = xml_to_backup_grp("<Tessaron><BGCreate IsCluster='true'/></Tessaron>", &cluster);
    ASSERT_TRUE(group);
    EXPECT_EQ(group->name, std::nullopt);
    EXPECT_FALSE(cluster) << "only 1 is true";
    cluster = true;
    ASSERT_TRUE(xml_to_del_grp("<Tessaron><BGDelete BGName='n'/></Tessaron>", &cluster));
    EXPECT_FALSE(cluster) << "absent is false";
}

TEST(Requests, DiskLeavingAGroupIsReadFromTheFirstChildOnly)
{
    std::string guid = "old", group = "old";
    EXPECT_EQ(xml_to_bg_info(&guid, &group, "<Tessaron><x/><RemBGDisk BGName='g' SrcGUID='d'/></Tessaron>"),
              0);
    EXPECT_EQ(guid + group, "oldold");
    take_log();
    EXPECT_EQ(xml_to_bg_info(&guid, &group, "<Tessaron><RemBGDisk BGName='g' SrcGUID='d'/></Tessaron>"), 0);
    EXPECT_EQ(guid + group, "dg");
    EXPECT_EQ(take_log(LOG_DEBUG), "7 xml_to_bg_info:group(g) guid(d)\n");
}

void parse_for_200_ms(accepts *parser, const char *text)
{
    log_level = LOG_ERR;
    itimerval limit{};
    limit.it_value.tv_usec = 200'000;
    setitimer(ITIMER_REAL, &limit, nullptr);
    parser(text);
    _exit(0);
}

// The endless repetition is what the system does. It is seen by a timer that ends the child process.
TEST(RequestsDeathTest, ChildThatIsNoMemberIsNeverPassed)
{
    const struct {
        accepts *parser;
        const char *text;
    } cases[] = {
        {backup_grp, "<Tessaron><BGCreate><Disk SrcGUID='a'/></BGCreate></Tessaron>"},
        {backup_grp, "<Tessaron><BGCreate><SrcDisk/></BGCreate></Tessaron>"},
        {bp_srcguid, "<Tessaron><BackupList><Disk SrcGUID='a'/></BackupList></Tessaron>"},
        {bp_srcguid, "<Tessaron><BackupList><Backup/></BackupList></Tessaron>"},
    };
    for (const auto &row : cases)
        EXPECT_EXIT(parse_for_200_ms(row.parser, row.text), testing::KilledBySignal(SIGALRM), "") << row.text;
}

TEST(Requests, SnapshotSourceIsUnwrappedForADiskOnly)
{
    const struct {
        const char *type, *source;
        snap_source_type expected_type;
        const char *expected_source;
    } cases[] = {
        {"0", "kav_{abc}", snap_disk, "abc"},
        {"0", "kav_{abc", snap_disk, "abc"},
        {"0", "abc", snap_disk, "abc"},
        {"0", "kav_{}", snap_disk, "kav_{}"},
        {"0", "{abc}", snap_disk, "{abc}"},
        {"0", "", snap_disk, ""},
        {"1", "kav_{abc}", snap_group, "kav_{abc}"},
        {"2", "g", snap_group, "g"},
        {"00", "g", snap_group, "g"},
    };
    for (const auto &row : cases) {
        snap_request snap;
        const std::string text = std::string("<Tessaron><Snap SourceType='") + row.type + "' Source='" +
                                 row.source + "' IsCluster='1'/></Tessaron>";
        EXPECT_EQ(xml_to_snap_guid(text.c_str(), &snap), 0);
        EXPECT_EQ(snap.source_type, row.expected_type) << text;
        EXPECT_EQ(snap.source, row.expected_source) << text;
        EXPECT_TRUE(snap.is_cluster);
    }
}

TEST(Requests, SnapshotVolumesReplaceTheList)
{
    list_of_texts list = {"old"};
    take_log();
    EXPECT_EQ(
        xml_to_snap_vol_guid("<Tessaron><Snap SnapVolGUID='kav_{a}'/><Other/><Snap/><Snap SnapVolGUID='b'/>"
                             "</Tessaron>",
                             &list),
        0);
    EXPECT_EQ(list, (list_of_texts{"a", "b"}));
    EXPECT_EQ(take_log(LOG_DEBUG), "7 Extracted GUID: kav_{a}\n"
                                   "3 Node Snap doesn't contain SnapVolGUID property, ignore!\n"
                                   "7 Extracted GUID: b\n");
    EXPECT_EQ(xml_to_snap_vol_guid("<Tessaron/>", nullptr), -1);
    EXPECT_EQ(take_log(), "3 Null list of guids.\n");
}

TEST(Requests, InstanceNameTouchesTheClusterFlagOnlyWhenItIsThere)
{
    bool cluster = true;
    EXPECT_EQ(xml_to_instance_name("<Tessaron><DBCfgDel InstanceName='i'/></Tessaron>", &cluster), "i");
    EXPECT_TRUE(cluster);
    xml_to_instance_name("<Tessaron><DBCfgDel IsCluster='2'/></Tessaron>", &cluster);
    EXPECT_FALSE(cluster);
}

TEST(Requests, BackupDisksTakeTheSchedule)
{
    std::list<qel_cdpsch> list(1);
    cdp_schedule schedule;
    std::string group = "old";
    const std::string head = "<Tessaron><BackupList><Backup SrcGUID='l' KavGUID='kav_{m}'/><x/>"
                             "<Backup SrcGUID='s' KavGUID='abcdef'/></BackupList>"
                             "<Schedule StartTime=' 100' IntervalSeconds='60s' Source='g' SourceType='";
    take_log();
    ASSERT_EQ(xml_to_cdpsch_list((head + "2'/></Tessaron>").c_str(), &list, &schedule, &group), 0);
    EXPECT_EQ(take_log(LOG_INFO),
              "6 Schedule dumped: start time: 100, interval: 60, source type: 2.\n"
              "6 Add backup for single disk: g.\n6 Got KAV GUID: kav_{m}.\n"
              "6 Read disk to be protected, local: l, mirror: m.\n4 Unknown backup node.\n"
              "6 Got KAV GUID: abcdef.\n6 Read disk to be protected, local: s, mirror: .\n"
              "6 Retrieving CDP schedule for specified disks.\n6 CDP schedule retrieved.\n");
    EXPECT_EQ(group, "old");
    ASSERT_EQ(list.size(), 3u);
    for (const qel_cdpsch &disk : list) {
        EXPECT_EQ(disk.cdp_start_time, 100u) << "also of those that were there before";
        EXPECT_EQ(disk.cdp_timeout, 60u);
    }
    EXPECT_EQ(std::next(list.begin())->mirror_lun, "m");
    ASSERT_EQ(xml_to_cdpsch_list((head + "1'/></Tessaron>").c_str(), &list, &schedule, &group), 0);
    EXPECT_EQ(group, "g");
    take_log();
    EXPECT_EQ(xml_to_cdpsch_list("<Tessaron/>", &list, &schedule, nullptr), -1);
    EXPECT_EQ(take_log(), "3 Parameter grp is null, it must be initialized.\n");
}

TEST(Requests, BackupSourcesAndVolumeNames)
{
    list_of_texts list;
    EXPECT_EQ(
        xml_to_bp_srcguid("<Tessaron><BackupList><Backup SrcGUID='a'/><Backup SrcGUID='b'/></BackupList>"
                          "</Tessaron>",
                          &list),
        0);
    EXPECT_EQ(list, (list_of_texts{"a", "b"}));
    std::string source, destination;
    EXPECT_EQ(xml_to_volname(&source, &destination,
                             "<Tessaron><Backup SrcGUID='s' DestGUID='kav_{abc}'/></Tessaron>"),
              0);
    EXPECT_EQ(source + ' ' + destination, "s abc");
}

TEST(Requests, MirrorIsFoundByTheExactLocalGuid)
{
    qel_inventory_t inventory;
    inventory.backups.resize(2);
    inventory.backups.front().src_guid = "ab";
    inventory.backups.back().src_guid = "a";
    inventory.backups.back().dest_guid = "mirror";
    take_log();
    EXPECT_EQ(get_mirror_guid_of_local("a", &inventory), "mirror");
    EXPECT_EQ(take_log(LOG_INFO), "6 Searching for the mirror GUID of local disk a.\n6 Found mirror mirror.\n"
                                  "6 Mirror GUID mirror retrieved.\n");
    EXPECT_EQ(get_mirror_guid_of_local("A", &inventory), std::nullopt);
}
} // namespace
