// What a manager, or a local tool, learns about a host.
#include "tests/system/adopted_test.h"

namespace {
class membership : public system_test {};
} // namespace

TEST_F(membership, ScanReportsTheHost)
{
    add_interface("net0", {"192.0.2.7", "192.0.2.8", "192.0.2.9"});
    write_file("/etc/issue", "Test & \"Host\" <1>\nand more\n");
    daemon.tool("get_db_home.sh", "echo 5 databases");
    write_config({.guid = "0001-guid", .filter = {"192.0.2.8"}});
    daemon.start();
    const auto answer = ask(command::scan_client);
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
}

TEST_F(membership, ToolsDoNotSeeWhoStartedTheDaemon)
{
    // Two signals above 31 are the C library's own, which it leaves ignored.
    daemon.tool("get_db_home.sh", R"sh({ tr '\0' '\n' </proc/$$/environ | grep -v ^PWD= | sort
        while read -r key value; do
            case $key in SigBlk: | SigIgn:) echo $key $((0x$value & 0x7fffffff)) ;; esac
        done </proc/$$/status; } >/var/tmp/seen; echo 0)sh");
    daemon.start();
    EXPECT_EQ(read_file("/var/tmp/seen"),
              "HOME=/\nLC_ALL=C\nPATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n"
              "SigBlk: 0\nSigIgn: 0\n");
}

TEST_F(membership, AdoptedClientIsListedButNotScanned)
{
    write_config({.guid = "0001-guid",
                  .alias = "a &lt;host&gt;",
                  .manager_guid = "M-1",
                  .manager_ips = {"127.0.0.1", "192.0.2.200"},
                  .more = element("CDPScheduleList", schedule_element(1, 0, far_future, 300))});
    fake_manager manager;
    manager.answer(0, manager_document("M-1", "127.0.0.1"));
    daemon.start();
    const auto scanned = ask(command::scan_client);
    ASSERT_TRUE(scanned);
    EXPECT_EQ(scanned->head.ret, 52);
    EXPECT_EQ(scanned->body, "");

    const auto listed = ask(command::local_list);
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->head.ret, 0);
    EXPECT_EQ(listed->body,
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<Tessaron><Client GUID=\"0001-guid\" Alias=\"a &lt;host&gt;\"/>"
              "<Manager GUID=\"M-1\" IPs=\"127.0.0.1 192.0.2.200\"/>"
              "<CDPSchedule Local=\"L1\" Mirror=\"M1\" StartTime=\"4102444800\" Timeout=\"300\"/>"
              "</Tessaron>\n");
    qelcd::stop();
}

TEST_F(membership, SlowDiskLibraryDelaysNobody)
{
    world.delay("kavdisk_get_devs", 60, 2); // the first call is made before the daemon serves
    daemon.start();
    ASSERT_TRUE(eventually([&] { return world.calls("kavdisk_get_devs").size() == 2; }));
    for (const uint32_t command : {command::scan_client, command::local_list, command::nop_command})
        EXPECT_TRUE(ask(command)) << command;
    EXPECT_EQ(world.calls("kavdisk_free_devs").size(), 1U) << "the second call was over too early";
}

TEST_F(membership, RescanAnswersWhatTheDiskLibrarySays)
{
    world.once("kavdisk_rescan_dev", "1", {"0"});
    world.once("kavdisk_rescan_dev", "0", {"0"});
    daemon.start();
    for (const int status : {0, 1}) {
        const auto answer = ask(command::rescan_devices);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->head.ret, status);
        EXPECT_EQ(answer->body, "");
    }
}
