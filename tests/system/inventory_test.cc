// What the inventory makes of a host, and the report of it: the client room itself, on the files of a private
// host and scripted platform libraries.
#include "base/xml.h"
#include "client/channels.h"
#include "client/client.h"
#include "client/host.h"
#include "client/inventory.h"
#include "client/report.h"
#include "client/report_values.h"
#include "tests/scripted/script.h"
#include "tests/support/files.h"
#include "tests/support/loop_disk.h"
#include "tests/support/system_log.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {
constexpr char mirror_guid[] = "11111111-2222-3333-4444-555555555555";
constexpr char unreadable_guid[] = "ffffffff-0000-0000-0000-000000000000";

// One test a process: the inventory is the process's own.
class inventory : public testing::Test {
protected:
    inventory()
    {
        g_client = &client;
        client.guid = "client-1";
        client.alias = "old & new";
        for (const char *line : {"Failed to get DBOEM*", "Failed to open*", "Disk '*' not exist"})
            log.tolerate(line);
    }

    void adopt(const char *target)
    {
        client.manager = std::make_unique<qel_manager>();
        client.manager->guid = "manager-1";
        client.manager->target_iqn = target;
    }

    script world;
    system_log log;
    qel_t client;
};

scripted_disk disk_named(const std::string &name, const std::string &vendor, const std::string &model)
{
    return {
        .name = name, .path = "/dev/" + name, .vendor = vendor, .model = model, .sectors = 2048, .parts = {}};
}

std::string names_of(const std::list<qel_disk_t> &disks)
{
    std::string names;
    for (const qel_disk_t &disk : disks)
        names += *disk.name + " ";
    return names;
}
} // namespace

TEST_F(inventory, FullReportTellsAllOfTheHost)
{
    const fake_folder classes("/sys/class");
    write_file("/sys/class/iscsi_session/session1/targetname", "iqn.other\n");
    write_file("/sys/class/iscsi_session/session12/targetname", "iqn.manager\n");
    write_file("/sys/class/fc_host/host3/port_name", "0x21000024ff3c5a1e\n");
    write_file("/sys/class/fc_host/host4/port_name", "");
    write_file("/etc/iscsi/initiatorname.iscsi", "InitiatorName=iqn.host\n");
    write_file("/etc/issue", "Host 1\n");
    std::remove("/etc/mtab");
    write_file("/etc/mtab", "/dev/sda1 / ext4 rw 0 0\n/dev/sdb1 /home ext4 rw 0 0\n");
    adopt("iqn.manager");

    scripted_disk local = disk_named("sda", "  ACME ", "Disk 1   ");
    local.parts = {{.name = "sda1", .guid = "p-1", .fs = "ext4", .size = 1000, .used = 400},
                   {.name = "sda2"}};
    scripted_disk mirror = disk_named("sdm", "QRZ     ", "anything");
    scripted_disk volume = disk_named("sdv", "other", "KAVSolution     ");
    scripted_disk left_alone = disk_named("sdx", "ACME", "Disk");
    left_alone.state = 0;
    scripted_disk nameless = disk_named("sdn", "ACME", "Disk");
    nameless.name.reset();
    scripted_disk bare = disk_named("sdb", "", "");
    bare.vendor.reset();
    world.disks({local, mirror, volume, left_alone, nameless, bare});
    world.scsi_guid("/dev/sdm", mirror_guid);
    world.scsi_guid("/dev/sdv", "volume-guid");
    world.part_type("/dev/sda", 1);
    world.part_type("/dev/sdm", 2);
    world.part_type("/dev/sdv", 2);
    world.relationships(
        {{.src_path = "/dev/sda", .src_guid = "src-1", .dest_guid = mirror_guid, .percent = 101},
         {.src_path = "/dev/sdz", .src_guid = "src-2", .dest_guid = "m-2", .status = "Stopped"}});
    world.apps({{.instance_name = "orcl", .db_type = 1, .archive_log = -1, .oracle_home = "/o"},
                {.instance_name = "other", .db_type = 2}});
    client.cdpsch_list.push_back({"src-1", mirror_guid, 1000, 2000, 300});
    client.group_list.push_back({"g1", 77, 88, 99, {{unreadable_guid}, {"unknown"}}});

    qel_inventory_init();
    EXPECT_EQ(
        client_to_xml(*qel_get_inventory(), g_client, 1),
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<Tessaron ClientType=\"0\" NbClients=\"1\" ClusterName=\"\" ClusterID=\"\">"
        "<Client Name=\"private-host\" IPs=\"\" HostName=\"private-host\" SystemType=\"0\""
        " SysVersion=\"Host 1\" ID=\"client-1\" DBOEM=\"00000000000000000000000000000000\""
        " Alias=\"old &amp; new\"><DiskList>"
        "<Disk Name=\"sda\" Size=\"1048576\" Type=\"1\" Used=\"0\""
        " Guid=\"ffffffff-0000-0000-0000-000000000000\" FS=\"\" State=\"1\" Vendor=\"ACME Disk 1\""
        " SysDisk=\"1\"><Partition Name=\"sda1\" Index=\"0\" Size=\"1000\" Used=\"400\" Guid=\"p-1\""
        " FS=\"ext4\" State=\"0\"/><Partition Name=\"sda2\" Index=\"0\" Size=\"0\" Used=\"0\" Guid=\"\""
        " FS=\"\" State=\"0\"/></Disk>"
        "<Disk Name=\"sdv\" Size=\"1048576\" Type=\"2\" Used=\"0\" Guid=\"volume-guid\" FS=\"\" State=\"1\""
        " Vendor=\"other KAVSolution\" SysDisk=\"0\"/>"
        "<Disk Name=\"sdb\" Size=\"1048576\" Type=\"0\" Used=\"0\""
        " Guid=\"ffffffff-0000-0000-0000-000000000000\" FS=\"\" State=\"1\" Vendor=\"\" SysDisk=\"0\"/>"
        "<Volume/></DiskList>"
        "<ChannelList><Channel Type=\"ISCSI\" InitiatorIqn=\"iqn.host\" TargetIqn=\"iqn.manager\"/>"
        "<Channel Type=\"FC\" InitiatorWWN=\"21:00:00:24:ff:3c:5a:1e\" TargetWWN=\"\"/></ChannelList>"
        "<BackupList><Backup Type=\"1\" State=\"0\" Percent=\"0\" Speed=\"-1\" SrcGUID=\"src-1\""
        " SrcName=\"sda\" DestGUID=\"kav_{11111111-2222-3333-4444-555555555555}\" StartTime=\"1000\""
        " IntervalSeconds=\"300\" SrcDiskGUID=\"src-1\"/></BackupList>"
        "<DataBaseList ConfiguredBy=\"0\">"
        "<DataBase Type=\"0\" OracleHome=\"/o\" InstanceName=\"orcl\" ArchiveLog=\"-1\"/>"
        "<DataBase Type=\"-1\" OracleHome=\"\" InstanceName=\"other\" ArchiveLog=\"0\"/></DataBaseList>"
        "<GroupList><Group GroupName=\"g1\" StartTimestamp=\"77\" IntervalTime=\"99\" IsCluster=\"0\""
        " DiskType=\"1\" Active=\"1\"><Disk GUID=\"ffffffff-0000-0000-0000-000000000000\" Name=\"sda\"/>"
        "<Disk GUID=\"unknown\"/></Group></GroupList></Client></Tessaron>\n");
    EXPECT_EQ(world.calls("get_part_type").size(), 3U) << "a mirror's table is not looked at";
}

TEST_F(inventory, BackupStateFollowsSynchronisationAndThenTheLinks)
{
    const struct {
        const char *sync, *source, *destination;
        uint32_t state;
    } cases[] = {
        {"Sync Finished", "Up", "Up", 0}, {"Sync Cancelled", "Up", "Up", 1}, {"UnSync", "Up", "Up", 1},
        {"Sync On", "Up", "Up", 2},       {"Recovery On", "Up", "Up", 3},    {"Something", "Up", "Up", 0},
        {"Sync On", "Down", "Down", 4},   {"Sync On", "Up", "down", 5},
    };
    std::vector<scripted_relationship> relationships;
    for (const auto &one : cases)
        relationships.push_back(
            {"/dev/sda", "s", "d", one.sync, "Running", one.source, one.destination, "", 100});
    world.relationships(relationships);
    qel_inventory_init();
    ASSERT_EQ(g_inventory.backups.size(), std::size(cases));
    auto backup = g_inventory.backups.begin();
    for (const auto &one : cases)
        EXPECT_EQ((backup++)->state, one.state) << one.sync << one.source << one.destination;
}

TEST_F(inventory, RefreshSwapsInWhatHasChanged)
{
    world.disks({disk_named("sda", "A", "B")});
    qel_inventory_init();
    world.disks({disk_named("sdb", "A", "B"), disk_named("sdc", "A", "B")});
    world.relationships({{.src_path = "/dev/sdb", .src_guid = "s", .dest_guid = unreadable_guid}});
    add_interface("net0", {"192.0.2.7"});
    EXPECT_EQ(names_of(g_inventory.disks), "sda ");
    const qel_inventory_t *now = qel_rescan_inventory();
    EXPECT_EQ(names_of(now->disks), "sdb sdc ");
    EXPECT_EQ(now->backups.size(), 1U);
    EXPECT_EQ(now->ips.size(), 1U);
    EXPECT_NE(client_to_xml(*now, nullptr, 1).find("<Disk Name=\"sdb\" Size=\"1048576\" Type=\"0\""),
              std::string::npos)
        << "an ordinary disk with the GUID of a mirror stays";
}

TEST_F(inventory, OnlyBlankDisksThatAreReportedAreSignedAndNoTwoAlike)
{
    if (const std::string reason = loop_disk::unavailable(); !reason.empty())
        GTEST_SKIP() << reason;
    constexpr size_t offset = 440, sector = 512;
    const loop_disk one(1 << 20), two(1 << 20), signed_before(1 << 20), left_alone(1 << 20);
    const std::string text(offset, 'x'), rest(sector - offset - 4, '\0'), none(4, '\0'), old("\x2a\0\0\0", 4);
    one.write(0, text);
    signed_before.write(offset, old);
    std::vector<scripted_disk> disks;
    for (const loop_disk *disk : {&one, &two, &signed_before, &left_alone})
        disks.push_back(disk_named(disk->name(), "A", "B"));
    disks.back().state = 0;
    world.disks(disks);
    qel_inventory_init();
    const std::string signature = one.read(offset, 4);
    EXPECT_TRUE(signature != none && signature != two.read(offset, 4));
    EXPECT_EQ(one.read(0, sector), text + signature + rest);
    EXPECT_EQ(signed_before.read(0, sector), std::string(offset, '\0') + old + rest);
    EXPECT_EQ(left_alone.read(0, sector), std::string(sector, '\0'));
    EXPECT_FALSE(g_inventory.disks.front().guid) << "known from the next scan on";
    qel_rescan_inventory();
    char guid[64];
    snprintf(guid, sizeof guid, "%02hhx%02hhx%02hhx%02hhx-0000-0000-0000-000000000000", signature[3],
             signature[2], signature[1], signature[0]);
    EXPECT_EQ(g_inventory.disks.front().guid, guid);
}

TEST_F(inventory, NoChannelWithoutASessionToTheManagersTarget)
{
    const fake_folder classes("/sys/class");
    write_file("/etc/iscsi/initiatorname.iscsi", "InitiatorName=iqn.host\nInitiatorName=iqn.second\n");
    write_file("/sys/class/iscsi_session/session1/targetname", "iqn.manager.longer\n");
    write_file("/sys/class/iscsi_session/other/targetname", "iqn.manager\n");
    write_file("/sys/class/fc_host/host3/port_name", "0x2100\n");
    adopt("iqn.manager");
    std::list<qel_chn_t> channels;
    EXPECT_EQ(qel_get_chns_lock(&client, channels, client.lock), 0);
    ASSERT_EQ(channels.size(), 1U);
    EXPECT_EQ(channels.front().type, chn_fc);
    EXPECT_EQ(_is_iscsi_ssn_exist(nullptr), 0);

    std::list<std::string> initiators;
    EXPECT_EQ(qel_get_inis(&initiators), 0);
    EXPECT_EQ(initiators, (std::list<std::string>{"0x2100", "iqn.host", "iqn.second"}));
}

TEST_F(inventory, SystemDiskIsFoundByTheMountTable)
{
    std::remove("/etc/mtab");
    EXPECT_EQ(is_boot_dev("/dev/sda"), 0);
    log.expect(LOG_ERR, "/etc/mtab is not exit.");
    write_file("/etc/mtab", "/dev/sda2 / ext4 rw\n/dev/sdb1 /boot ext4 rw\n/dev/sdc1 /home ext4 rw\n" +
                                std::string(100000, 'x') + "/dev/sdd / \n/dev/sde1 /mnt/");
    const struct {
        const char *path;
        int system;
    } cases[] = {{"/dev/sda", 1}, {"/dev/sda2", 1}, {"/dev/sdb", 1}, {"/dev/sdc", 0}, {"/dev/sde", 0}};
    for (const auto &one : cases)
        EXPECT_EQ(is_boot_dev(one.path), one.system) << one.path;
}

TEST(report, FormatsOfNumbersAndNames)
{
    EXPECT_EQ(dboem_to_bits(3), std::string(30, '0') + "11");
    EXPECT_EQ(dboem_to_bits(-1), std::string(32, '1'));
    for (const char *refused : {"0x", "0x210", ""}) {
        std::string kept = "kept";
        EXPECT_EQ(format_wwn(&kept, refused), -1) << refused;
        EXPECT_EQ(kept, "kept");
    }
    std::string wwn;
    EXPECT_EQ(format_wwn(&wwn, "0x2100"), 5);
    EXPECT_EQ(wwn, "21:00");
}
