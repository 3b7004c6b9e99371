// What a manager, or a local tool, learns about a host.
#include "tests/support/manager.h"
#include "tests/support/system_test.h"

namespace {
constexpr uint32_t scan_client = 1;
constexpr uint32_t rescan_devices = 55;
constexpr uint32_t nop_command = 57;
constexpr uint32_t local_list = 30010;

class membership : public system_test {};
} // namespace

TEST_F(membership, ScanReportsTheHost)
{
    add_interface("net0", {"192.0.2.7", "192.0.2.8", "192.0.2.9"});
    write_file("/etc/issue", "Test & \"Host\" <1>\nand more\n");
    daemon.tool("get_db_home.sh", "echo 5 databases");
    write_config({.guid = "0001-guid", .filter = {"192.0.2.8"}});
    daemon.start();
    const auto answer = ask(scan_client);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->head.ret, 0);
    EXPECT_EQ(
        answer->body,
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<Tessaron ClientType=\"0\" NbClients=\"1\" ClusterName=\"\" ClusterID=\"\">"
        "<Client Name=\"private-host\" IPs=\"192.0.2.7 192.0.2.9\" HostName=\"private-host\" SystemType=\"0\""
        " SysVersion=\"Test &amp; &quot;Host&quot; &lt;1&gt;\" ID=\"0001-guid\""
        " DBOEM=\"00000000000000000000000000000101\"/>"
        "</Tessaron>\n");
    log.expect(LOG_INFO, "Complete work: SCAN_CLIENT", log.expect(LOG_INFO, "Recv cmd: XR_OP_SCAN_CLIENT"));
}

TEST_F(membership, AdoptedClientIsListedButNotScanned)
{
    write_config(
        {.guid = "0001-guid",
         .alias = "a &lt;host&gt;",
         .manager_guid = "M-1",
         .manager_ips = {"127.0.0.1", "192.0.2.200"},
         .more = "<CDPScheduleList><CDPSchedule><CDPLocalLUN>L</CDPLocalLUN><CDPMirrorLUN>M</CDPMirrorLUN>"
                 "<CDPConStartTime>0</CDPConStartTime><CDPStartTime>4102444800</CDPStartTime>"
                 "<CDPTimeout>300</CDPTimeout></CDPSchedule></CDPScheduleList>"});
    fake_manager manager;
    manager.answer(0, fake_manager::record("M-1", "127.0.0.1"));
    daemon.start();
    const auto scanned = ask(scan_client);
    ASSERT_TRUE(scanned);
    EXPECT_EQ(scanned->head.ret, 52);
    EXPECT_EQ(scanned->body, "");

    const auto listed = ask(local_list);
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->head.ret, 0);
    EXPECT_EQ(listed->body, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                            "<Tessaron><Client GUID=\"0001-guid\" Alias=\"a &lt;host&gt;\"/>"
                            "<Manager GUID=\"M-1\" IPs=\"127.0.0.1 192.0.2.200\"/>"
                            "<CDPSchedule Local=\"L\" Mirror=\"M\" StartTime=\"4102444800\" Timeout=\"300\"/>"
                            "</Tessaron>\n");
}

TEST_F(membership, SlowDiskLibraryDelaysNobody)
{
    world.delay("kavdisk_get_devs", 60, 2); // the first call is made before the daemon serves
    daemon.start();
    ASSERT_TRUE(eventually([&] { return world.calls("kavdisk_get_devs").size() == 2; }));
    for (const uint32_t command : {scan_client, local_list, nop_command})
        EXPECT_TRUE(ask(command)) << command;
    EXPECT_EQ(world.calls("kavdisk_free_devs").size(), 1U) << "the second call was over too early";
}

TEST_F(membership, RescanAnswersWhatTheDiskLibrarySays)
{
    world.once("kavdisk_rescan_dev", "1", {"0"});
    world.once("kavdisk_rescan_dev", "0", {"0"});
    daemon.start();
    for (const int status : {0, 1}) {
        const auto answer = ask(rescan_devices);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->head.ret, status);
        EXPECT_EQ(answer->body, "");
    }
}
