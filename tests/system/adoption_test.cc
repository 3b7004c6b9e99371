// The life of a client under a manager: adopted, reporting itself, given a channel, moved, released.
#include "tests/support/manager.h"
#include "tests/support/system_test.h"

#include <csignal>
#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

namespace {
constexpr uint32_t scan_client = 1;
constexpr uint32_t add_client = 2;
constexpr uint32_t del_client = 3;
constexpr uint32_t establish_channels = 5;
constexpr uint32_t get_client_info = 6;
constexpr uint32_t rename_client = 8;
constexpr uint32_t refresh_server = 54;
constexpr uint32_t local_list = 30010;
constexpr uint32_t local_withdraw = 30011;

constexpr char client_guid[] = "5e9d7f1a-0c3b-4f55-8a66-2d1f0e7b9c01"; // write_config's own
constexpr char session_dir[] = "/sys/class/iscsi_session";
constexpr char ran_path[] = "/var/tmp/iscsiadm-ran";

// An initiator tool that notes its arguments, keeps the kernel's session list, and fails for "bad" targets.
constexpr char initiator_tool[] = R"(
echo "$*" >>/var/tmp/iscsiadm-ran
target=${*##*-T }; target=${target%% *}
iface=${*##*-I }; iface=${iface%% *}
case $* in
    *bad*) exit 8 ;;
    *discovery*10.0.0.1*) mkdir -p /var/lib/iscsi/nodes/iqn.one/10.0.0.1,3260 ;;
    *discovery*) ;;
    *-l) mkdir -p /sys/class/iscsi_session/session1; cd /sys/class/iscsi_session/session1
         echo "$target" >targetname; echo "$iface" >ifacename ;;
    *-u) sleep ${LOGOUT_TAKES-0}; rm -r /sys/class/iscsi_session/session* ;;
esac)";

std::string pair(const std::string &server, const std::string &client = client_guid)
{
    return "<Tessaron><Server ID=\"" + server + "\"/><Client ID=\"" + client + "\"/></Tessaron>";
}

std::string channel(const std::string &target, const std::string &target_ip)
{
    return "<Tessaron><Channel InitiatorIqn=\"iqn.host\" TargetIqn=\"" + target +
           "\"><Path InitiatorIP=\"192.0.2.7\" TargetIP=\"" + target_ip + "\"/></Channel></Tessaron>";
}

std::string failure_document(const std::string &initiator_ip, const std::string &target_ip)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Tessaron><Path RetValue=\"1\" InitiatorIP=\"" +
           initiator_ip + "\" ClientID=\"" + client_guid + "\" TargetIP=\"" + target_ip + "\"/></Tessaron>\n";
}

bool config_has(const std::string &text)
{
    return read_file(config_file_path).find(text) != std::string::npos;
}

class adoption : public system_test {
protected:
    adoption()
    {
        add_interface("net0", {"192.0.2.7"});
        fs::create_directories(session_dir);
        fs::create_directories("/var/lib/iscsi/ifaces");
        fs::create_directories("/var/lib/iscsi/nodes");
        write_file("/usr/local/sbin/iscsiadm", "");
        daemon.tool("iscsiadm", std::string(initiator_tool).substr(1));
        daemon.tool("pgrep", "cat /var/tmp/iscsid-runs");
        write_file("/var/tmp/iscsid-runs", "1\n");
        daemon.tool("service", "echo service $* >>/var/tmp/iscsiadm-ran");
        world.always("Kav_delete_app", "1");
        world.always("Kav_delete_dev", "1");
        world.always("tw_disk_unprotect", "0");
        manager.answer(0, fake_manager::record("M-1", "127.0.0.1"));
        // The first beat after an adoption mostly comes before heartbeats are switched on, and is left out.
        log.tolerate("Failed to process job");
    }

    void expect_status(int status, uint32_t command, const std::string &body = "")
    {
        const auto answer = ask(command, body);
        ASSERT_TRUE(answer) << command;
        EXPECT_EQ(answer->head.ret, status) << command << ": " << answer->body;
    }

    void adopt()
    {
        daemon.start();
        expect_status(0, add_client, fake_manager::record("M-1", "127.0.0.1"));
        manager.expect_heartbeats(1);
    }

    // The command lines of the initiator's tools since the last call.
    static std::string ran()
    {
        std::string lines = read_file(ran_path);
        fs::remove(ran_path);
        return lines;
    }

    fake_folder classes{"/sys/class"};
    fake_folder local_tools{"/usr/local/sbin"};
    fake_manager manager;
};
} // namespace

TEST_F(adoption, AdoptedHostReportsItselfAndIsRenamedAndReleased)
{
    daemon.start();
    expect_status(1, get_client_info);
    expect_status(1, rename_client, "<Tessaron><Client Alias=\"x\"/></Tessaron>");
    expect_status(50, refresh_server, fake_manager::record("M-1", "127.0.0.1"));
    expect_status(1, add_client, "no document");
    log.expect(LOG_ERR, "Failed to parse xml document");
    size_t mark = log.expect(LOG_ERR, "Failed to fetch manager from xml");
    mark = log.expect(LOG_INFO, "Client added, turn on heartbeat!", mark);

    const auto adopted = ask(add_client, fake_manager::record("M-1", "127.0.0.1 192.0.2.99"));
    ASSERT_TRUE(adopted);
    EXPECT_EQ(adopted->head.ret, 0);
    mark = log.expect_sequence(LOG_INFO,
                               {"Recv cmd: ADD_CLIENT", "Appoint new manager 'M-1'",
                                "Manager appointed successfully.", "Heartbeat registered.",
                                "Heartbeat is registered successfully.", "Complete work: ADD_CLIENT",
                                "Client added, turn on heartbeat!"},
                               mark);
    EXPECT_TRUE(config_has("<ManagerIPAddr>192.0.2.99</ManagerIPAddr>"));

    manager.expect_heartbeats(2);
    const reply heartbeat = manager.heartbeats().back();
    EXPECT_EQ(frame(heartbeat.head),
              std::string("\2\0\0\0\0\0\3\0\x20\0\0\0", 12) + frame(heartbeat.head).substr(12));
    EXPECT_EQ(heartbeat.body, adopted->body);

    expect_status(52, scan_client);
    expect_status(52, add_client, fake_manager::record("M-2", "127.0.0.1"));
    log.expect(LOG_WARNING, "Client is already added to an other server.");
    expect_status(1, rename_client, "<Tessaron><Client/></Tessaron>");
    log.expect(LOG_ERR, "Failed to fetch client alias from xml");
    expect_status(0, rename_client, "<Tessaron><Client Alias=\"new &amp; name\"/></Tessaron>");
    EXPECT_TRUE(config_has("<ClientAlias>new &amp; name</ClientAlias>"));
    const auto info = ask(get_client_info);
    ASSERT_TRUE(info);
    EXPECT_NE(info->body.find(" Alias=\"new &amp; name\""), std::string::npos) << info->body;

    expect_status(4, refresh_server, "no document");
    log.expect(LOG_ERR, "Failed to fetch manager from xml",
               log.expect(LOG_ERR, "Failed to parse xml document", mark));

    expect_status(1, local_withdraw);
    log.expect(LOG_ERR, "Failed to reset: server still alive(you can delete client on console)");

    expect_status(1, del_client, pair("M-2"));
    log.expect(LOG_ERR, "Server(M-2) or client(" + std::string(client_guid) + ") error");
    world.relationships({{.src_guid = "S", .dest_guid = "D"}});
    expect_status(10000, del_client, pair("M-1"));
    log.expect(LOG_ERR, "Client resetting failed due to existing twinvault protection.");
    log.expect(LOG_ERR, "Failed to process job", log.size()); // off by now, although the release was refused
    EXPECT_TRUE(config_has("<ManagerGUID>M-1</ManagerGUID>"));

    world.relationships({});
    mark = log.size();
    expect_status(0, del_client, pair("M-1"));
    log.expect_sequence(LOG_INFO,
                        {"Recv cmd: DEL_CLIENT", "Resetting client.", "Releasing all background task.",
                         "Stop heartbeat.", "Remove all CDP schedules.", "Remove all backup groups.",
                         "Shutdown iSCSI channels.", "Delete manager 'M-1'", "No manager node is generated.",
                         "Client reset.", "Complete work: DEL_CLIENT"},
                        mark);
    EXPECT_FALSE(config_has("Manager"));
    EXPECT_EQ(ran(), "") << "there was no channel to shut down";

    // At once, before the timer has freed the job of before.
    expect_status(0, add_client, fake_manager::record("M-1", "127.0.0.1"));
    manager.expect_heartbeats(2);
}

TEST_F(adoption, ChannelIsSetUpMovedKeptAliveAndShutDown)
{
    adopt();
    expect_status(0, establish_channels, channel("iqn.one", "10.0.0.1"));
    const std::string discover = "-m discovery -t st -p 10.0.0.1:3260 -I qel_iface_net0\n";
    EXPECT_EQ(ran(), discover + discover + "-m node -p 10.0.0.1:3260 -T iqn.one -I qel_iface_net0 -l\n");
    EXPECT_EQ(read_file("/var/lib/iscsi/ifaces/qel_iface_net0").find("iface.net_ifacename = net0\n"), 0U);
    EXPECT_TRUE(config_has("<TargetIQN>iqn.one</TargetIQN>"));
    log.expect_sequence(LOG_INFO, {"iSCSI is established successfully.", "Updaing server IQN information.",
                                   "Server IQN is updated.", "Complete work: ESTABLISH_CHANNELS"});

    expect_status(0, establish_channels, channel("iqn.one", "10.0.0.1"));
    log.expect(LOG_INFO, "Iscsi session(tgt: iqn.one) already exist");
    EXPECT_EQ(ran(), discover);

    // The session dies: a heartbeat finds out and logs in again, also that of a new working process.
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    fs::remove_all(std::string(session_dir) + "/session1");
    qelcd::wait_for_new_worker(worker);
    log.expect(LOG_INFO, "Heartbeat registered.", log.expect(LOG_INFO, "Create working process.", 2));
    log.expect(LOG_INFO, "Channel auto login success.");
    EXPECT_EQ(ran(), "-m discovery -t st -p 127.0.0.1 -I qel_iface_net0\n"
                     "-m node -p 127.0.0.1 -T iqn.one -I qel_iface_net0 -l\n");

    // The manager moves: the old target goes, the new one is looked for at its addresses in turn.
    manager.answer(0, fake_manager::record("M-1", "127.0.0.2"));
    world.once("kavdisk_rescan_dev", "1", {"0"});
    expect_status(0, refresh_server, fake_manager::record("M-1", "127.0.0.2 127.0.0.3", "iqn.two"));
    EXPECT_EQ(ran(), "-m node -T iqn.one -u\n"
                     "-m discovery -t st -p 127.0.0.2 -I qel_iface_net0\n"
                     "-m node -p 127.0.0.2 -T iqn.two -I qel_iface_net0 -l\n");
    log.expect(LOG_INFO, "Connect to 'iqn.two'(127.0.0.2:0) success");
    log.expect(LOG_INFO, "Kavdisk rescan all of device success.");
    EXPECT_TRUE(config_has("<TargetIQN>iqn.two</TargetIQN>"));
    EXPECT_FALSE(fs::exists("/var/lib/iscsi/nodes/iqn.one"));
    manager.expect_heartbeats(1);

    world.once("kavdisk_rescan_dev", "0", {"0"}); // unchanged, and refused: no channel is touched
    expect_status(0, refresh_server, fake_manager::record("M-2", "127.0.0.9", "iqn.three"));
    log.expect(LOG_WARNING, "'M-2' is not the right manager, 'M-1' is");
    log.expect(LOG_INFO, "Kavdisk rescan all of devcie failed.");
    EXPECT_EQ(ran(), "");

    expect_status(0, del_client, pair("M-1"));
    EXPECT_EQ(ran(), "-m node -T iqn.two -u\n");
    EXPECT_FALSE(fs::exists("/var/lib/iscsi/ifaces/qel_iface_net0"));
    log.tolerate("Failed to open dir:/var/lib/iscsi/nodes/iqn.two|Failed to remove iscsi node files");
}

TEST_F(adoption, ChannelThatCannotBeSetUpIsToldWithItsAddresses)
{
    log.tolerate("Failed to execute cmd: .*|Failed to establish iscsi channel");
    daemon.start();
    const auto expect_failure = [&](const std::string &request, const std::string &initiator,
                                    const std::string &target) {
        const auto answer = ask(establish_channels, request);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->head.ret, 10039);
        EXPECT_EQ(answer->body, failure_document(initiator, target)) << request;
    };
    expect_failure(channel("iqn.one", "10.0.0.1"), "0.0.0.0", "0.0.0.0"); // nobody has adopted this host
    expect_status(0, add_client, fake_manager::record("M-1", "127.0.0.1"));
    expect_failure("<Tessaron/>", "0.0.0.0", "0.0.0.0");
    log.expect(LOG_ERR, "Failed to retrieve node Channel.");
    log.expect(LOG_ERR, "Failed to get iscsi node info");
    expect_failure(channel("iqn.one", "0.0.0.0"), "192.0.2.7", "0.0.0.0");
    log.expect(LOG_INFO, "Cannot received servcer targetiqn.");
    expect_failure(channel("iqn.bad", "10.0.0.1:3261"), "0.0.0.0", "0.0.0.0");
    ran();
    expect_failure(channel("$(touch /var/tmp/oops)", "10.0.0.1"), "0.0.0.0", "0.0.0.0");
    EXPECT_EQ(ran(), "-m discovery -t st -p 10.0.0.1:3260 -I qel_iface_net0\n"
                     "-m discovery -t st -p 10.0.0.1:3260 -I qel_iface_net0\n");
    EXPECT_FALSE(fs::exists("/var/tmp/oops"));
    log.tolerate("Failed to open dir:/var/lib/iscsi/nodes/.*");

    write_file("/var/tmp/iscsid-runs", "");
    expect_status(10031, establish_channels, channel("iqn.bad", "10.0.0.1"));
    EXPECT_EQ(ran().find("service iscsi start\n"), 0U);
    log.expect(LOG_WARNING, "Iscsid service is not start");
    log.expect(LOG_ERR, "Failed to start iscsid service");

    const fake_folder hidden("/usr/sbin");
    fs::remove("/usr/local/sbin/iscsiadm");
    expect_status(10025, establish_channels, channel("iqn.one", "10.0.0.1"));
    log.expect(LOG_ERR, "Iscsi initiator is not installed");
    EXPECT_EQ(ran(), "");
}

TEST_F(adoption, ManagerThatLetsGoMakesTheClientForgetEverything)
{
    world.apps({{.instance_name = "db-1"}, {.instance_name = "db-2"}});
    world.relationships({{.src_guid = "S1", .dest_guid = "D1"}, {.src_guid = "S2", .dest_guid = "D2"}});
    write_config({.manager_guid = "M-1",
                  .manager_ips = {"127.0.0.1"},
                  .more = "<CDPScheduleList><CDPSchedule><CDPLocalLUN>L</CDPLocalLUN><CDPMirrorLUN>M"
                          "</CDPMirrorLUN><CDPConStartTime>0</CDPConStartTime><CDPStartTime>4102444800"
                          "</CDPStartTime><CDPTimeout>300</CDPTimeout></CDPSchedule></CDPScheduleList>"});
    manager.answer(50);
    daemon.start();
    log.expect(LOG_ERR, "Localhost is unprotected anymore");
    size_t mark = 0; // the daemon is asked whether it serves meanwhile, so other lines may stand between
    for (const char *step :
         {"Releasing all background task.", "Stop heartbeat.", "Remove twinvault protection.",
          "Remove twinvault protection.", "Remove all CDP schedules.", "Remove all backup groups.",
          "Shutdown iSCSI channels.", "Delete manager 'M-1'"})
        mark = log.expect(LOG_INFO, step, mark);
    ASSERT_TRUE(eventually([&] { return !config_has("M-1") && !config_has("CDPLocalLUN"); }));
    EXPECT_EQ(world.calls("Kav_delete_app"),
              (std::vector<std::string>{"Kav_delete_app db-1", "Kav_delete_app db-2"}));
    EXPECT_EQ(world.calls("tw_disk_unprotect"),
              (std::vector<std::string>{"tw_disk_unprotect S1", "tw_disk_unprotect S2"}));
    EXPECT_EQ(world.calls("Kav_delete_dev"),
              (std::vector<std::string>{"Kav_delete_dev 0 D1", "Kav_delete_dev 0 D2"}));
    expect_status(0, scan_client);
}

TEST_F(adoption, AnswersChangeTheManagerOnlyAsFarAsTheyMay)
{
    adopt();
    const size_t appointed = log.expect(LOG_INFO, "Appoint new manager 'M-1'");
    manager.answer(7);
    log.expect(LOG_ERR, "Tessaron server return error");
    manager.answer(0, "nonsense");
    log.expect(LOG_ERR, "Failed to parse xml document");
    log.expect(LOG_ERR, "Failed to fetch manager from xml");
    manager.answer(0, fake_manager::record("M-2", "127.0.0.2"));
    log.expect(LOG_WARNING, "'M-2' is not the right manager, 'M-1' is");
    manager.answer(0, fake_manager::record("M-1", "127.0.0.1 127.0.0.2")); // only the first address counts
    manager.expect_heartbeats(2);
    EXPECT_FALSE(config_has("127.0.0.2"));
    manager.answer(0, fake_manager::record("M-1", "127.0.0.3 127.0.0.2"));
    log.expect(LOG_INFO, "Appoint new manager 'M-1'", appointed);
    EXPECT_TRUE(eventually([] { return config_has("<ManagerIPAddr>127.0.0.3</ManagerIPAddr>"); }));

    manager.stall(true); // a slow manager does not stop the heartbeats after
    manager.expect_heartbeats(2);
    manager.stall(false);
}

TEST_F(adoption, UnreachableManagerSlowsTheHeartbeatAndAllowsToWithdraw)
{
    write_config({.manager_guid = "M-1"}); // without any address
    daemon.start();
    const std::string failure = "Failed to connect to manager 'M-1'";
    size_t mark = log.expect(LOG_ERR, failure, log.expect(LOG_ERR, failure));
    mark = log.expect(LOG_ERR, failure, log.expect(LOG_ERR, failure, mark));
    log.tolerate(failure);

    expect_status(0, local_withdraw);
    log.expect(LOG_INFO, "Complete work: LOCAL_WITHDRAW", mark);
    EXPECT_FALSE(config_has("M-1"));
}

TEST_F(adoption, OnlyOneOfManyResetsRunsAndOthersAreNotKeptWaiting)
{
    daemon.tool("iscsiadm", "LOGOUT_TAKES=3\n" + std::string(initiator_tool).substr(1));
    adopt();
    expect_status(0, establish_channels, channel("iqn.one", "10.0.0.1"));
    std::vector<std::thread> releases;
    for (int i = 0; i < 8; ++i)
        releases.emplace_back([] { ask(del_client, pair("M-1")); });
    log.expect(LOG_INFO, "Shutdown iSCSI channels.");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(ask(local_list)); // although the log-out holds the client record
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    for (std::thread &release : releases)
        release.join();
    log.tolerate("Server\\(M-1\\) or client.*");
    size_t resets = 0;
    for (const log_line &line : log.lines())
        resets += line.text == "Releasing all background task.";
    EXPECT_EQ(resets, 1U);
}
