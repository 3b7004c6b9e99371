// The life of a client under a manager: adopted, reporting itself, given a channel, moved, released.
#include "tests/system/adopted_test.h"

#include <csignal>
#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

namespace {
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

std::string pair(const std::string &server)
{
    return pair_document(server, client_guid);
}

std::string channel(const std::string &target, const std::string &target_ip)
{
    return channel_document(target, "192.0.2.7", target_ip);
}

bool config_has(const std::string &text)
{
    return read_file(config_file_path).find(text) != std::string::npos;
}

class adoption : public adopted_test {
protected:
    adoption()
    {
        add_interface("net0", {"192.0.2.7"});
        fs::create_directories(session_dir);
        fs::create_directories("/var/lib/iscsi/ifaces");
        fs::create_directories("/var/lib/iscsi/nodes");
        daemon.tool("iscsiadm", std::string(initiator_tool).substr(1));
        daemon.tool("pgrep", "cat /var/tmp/iscsid-runs");
        write_file("/var/tmp/iscsid-runs", "1\n");
        daemon.tool("service", "echo service $* >>/var/tmp/iscsiadm-ran");
        world.always("Kav_delete_app", "1");
        world.always("Kav_delete_dev", "1");
        world.always("tw_disk_unprotect", "0");
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
        expect_status(0, command::add_client, manager_document("M-1", "127.0.0.1"));
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
};
} // namespace

TEST_F(adoption, AdoptedHostReportsItselfAndIsRenamedAndReleased)
{
    daemon.start();
    expect_status(1, command::get_client_info);
    expect_status(1, command::add_client, "no document");
    log.expect(LOG_ERR, "Failed to parse xml document");
    log.expect(LOG_ERR, "Failed to fetch manager from xml");

    const auto adopted = ask(command::add_client, manager_document("M-1", "127.0.0.1 192.0.2.99"));
    ASSERT_TRUE(adopted);
    EXPECT_EQ(adopted->head.ret, 0);
    EXPECT_TRUE(config_has("<ManagerIPAddr>192.0.2.99</ManagerIPAddr>"));
    manager.expect_heartbeats(2);
    const reply heartbeat = manager.heartbeats().back();
    EXPECT_EQ(frame(heartbeat.head),
              std::string("\2\0\0\0\0\0\3\0\x20\0\0\0", 12) + frame(heartbeat.head).substr(12));
    EXPECT_EQ(heartbeat.body, adopted->body);

    expect_status(52, command::scan_client);
    expect_status(52, command::add_client, manager_document("M-2", "127.0.0.1"));
    expect_status(0, command::rename_client, "<Tessaron><Client Alias=\"new &amp; name\"/></Tessaron>");
    EXPECT_TRUE(config_has("<ClientAlias>new &amp; name</ClientAlias>"));
    const auto info = ask(command::get_client_info);
    ASSERT_TRUE(info);
    EXPECT_NE(info->body.find(" Alias=\"new &amp; name\""), std::string::npos) << info->body;

    expect_status(1, command::local_withdraw);
    log.expect(LOG_ERR, "Failed to reset: server still alive(you can delete client on console)");
    expect_status(1, command::del_client, pair("M-2"));
    log.expect(LOG_ERR, "Server(M-2) or client(" + std::string(client_guid) + ") error");
    world.relationships({{.src_guid = "S", .dest_guid = "D"}});
    expect_status(10000, command::del_client, pair("M-1"));
    log.expect(LOG_ERR, "Client resetting failed due to existing twinvault protection.");
    log.expect(LOG_ERR, "Failed to process job", log.size()); // off by now, although the release was refused
    EXPECT_TRUE(config_has("<ManagerGUID>M-1</ManagerGUID>"));

    world.relationships({});
    expect_status(0, command::del_client, pair("M-1"));
    EXPECT_FALSE(config_has("Manager"));
    EXPECT_FALSE(config_has("new &amp; name")) << "the manager's alias goes with it";
    EXPECT_EQ(ran(), "") << "there was no channel to shut down";

    // At once, before the timer has freed the job of before. The alias is forgotten in the reports, too.
    const auto again = ask(command::add_client, manager_document("M-1", "127.0.0.1"));
    EXPECT_TRUE(again && again->head.ret == 0 && again->body.find("new &amp; name") == std::string::npos);
    manager.expect_heartbeats(2);
}

TEST_F(adoption, ChannelIsSetUpMovedKeptAliveAndShutDown)
{
    adopt();
    expect_status(0, command::establish_channels, channel("iqn.one", "10.0.0.1"));
    const std::string discover = "-m discovery -t st -p 10.0.0.1:3260 -I qel_iface_net0\n";
    EXPECT_EQ(ran(), discover + discover + "-m node -p 10.0.0.1:3260 -T iqn.one -I qel_iface_net0 -l\n");
    EXPECT_EQ(read_file("/var/lib/iscsi/ifaces/qel_iface_net0").find("iface.net_ifacename = net0\n"), 0U);
    EXPECT_TRUE(config_has("<TargetIQN>iqn.one</TargetIQN>"));

    expect_status(0, command::establish_channels, channel("iqn.one", "10.0.0.1"));
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
    manager.answer(0, manager_document("M-1", "127.0.0.2"));
    world.once("kavdisk_rescan_dev", "1", {"0"});
    expect_status(0, command::refresh_server, manager_document("M-1", "127.0.0.2 127.0.0.3", "iqn.two"));
    EXPECT_EQ(ran(), "-m node -T iqn.one -u\n"
                     "-m discovery -t st -p 127.0.0.2 -I qel_iface_net0\n"
                     "-m node -p 127.0.0.2 -T iqn.two -I qel_iface_net0 -l\n");
    log.expect(LOG_INFO, "Connect to 'iqn.two'(127.0.0.2:0) success");
    log.expect(LOG_INFO, "Kavdisk rescan all of device success.");
    EXPECT_TRUE(config_has("<TargetIQN>iqn.two</TargetIQN>"));
    EXPECT_FALSE(fs::exists("/var/lib/iscsi/nodes/iqn.one"));
    manager.expect_heartbeats(1);

    world.once("kavdisk_rescan_dev", "0", {"0"}); // unchanged, and refused: no channel is touched
    expect_status(0, command::refresh_server, manager_document("M-2", "127.0.0.9", "iqn.three"));
    log.expect(LOG_WARNING, "'M-2' is not the right manager, 'M-1' is");
    log.expect(LOG_INFO, "Kavdisk rescan all of devcie failed.");
    EXPECT_EQ(ran(), "");

    expect_status(0, command::del_client, pair("M-1"));
    EXPECT_EQ(ran(), "-m node -T iqn.two -u\n");
    EXPECT_FALSE(fs::exists("/var/lib/iscsi/ifaces/qel_iface_net0"));
    log.tolerate("Failed to open dir:/var/lib/iscsi/nodes/iqn.two");
    log.tolerate("Failed to remove iscsi node files");
}

TEST_F(adoption, ChannelThatCannotBeSetUpIsToldWithItsAddresses)
{
    daemon.start();
    const auto expect_failure = [&](const std::string &request, const std::string &initiator,
                                    const std::string &target) {
        constexpr char path[] = R"(<Path RetValue="1" InitiatorIP="%" ClientID="%" TargetIP="%"/>)";
        expect_answer(10039, command::establish_channels, request, "",
                      in_root(filled(path, initiator, client_guid, target)));
    };
    expect_failure(channel("iqn.one", "10.0.0.1"), "0.0.0.0", "0.0.0.0"); // nobody has adopted this host
    expect_status(0, command::add_client, manager_document("M-1", "127.0.0.1"));
    expect_failure("<Tessaron/>", "0.0.0.0", "0.0.0.0");
    log.expect(LOG_ERR, "Failed to retrieve node Channel.");
    log.expect(LOG_ERR, "Failed to get iscsi node info");
    for (const char *request : {"<Tessaron><Channel TargetIqn='t'/></Tessaron>",
                                "<Tessaron><Channel InitiatorIqn='i' TargetIqn='t'/></Tessaron>"})
        expect_failure(request, "0.0.0.0", "0.0.0.0");
    log.tolerate("Failed to *");
    expect_failure(channel("iqn.one", "0.0.0.0"), "192.0.2.7", "0.0.0.0");
    log.expect(LOG_INFO, "Cannot received servcer targetiqn.");
    expect_failure(channel("iqn.bad", "10.0.0.1:3261"), "0.0.0.0", "0.0.0.0");
    ran();
    expect_failure(channel("$(touch /var/tmp/oops)", "10.0.0.1"), "0.0.0.0", "0.0.0.0");
    EXPECT_EQ(ran(), "-m discovery -t st -p 10.0.0.1:3260 -I qel_iface_net0\n"
                     "-m discovery -t st -p 10.0.0.1:3260 -I qel_iface_net0\n");
    EXPECT_FALSE(fs::exists("/var/tmp/oops"));

    write_file("/var/tmp/iscsid-runs", "");
    expect_status(10031, command::establish_channels, channel("iqn.bad", "10.0.0.1"));
    EXPECT_EQ(ran().find("service iscsi start\n"), 0U);
    log.expect(LOG_WARNING, "Iscsid service is not start");
    log.expect(LOG_ERR, "Failed to start iscsid service");

    const fake_folder hidden("/usr/sbin");
    fs::remove("/usr/local/sbin/iscsiadm");
    expect_status(10025, command::establish_channels, channel("iqn.one", "10.0.0.1"));
    log.expect(LOG_ERR, "Iscsi initiator is not installed");
    EXPECT_EQ(ran(), "");
}

TEST_F(adoption, ManagerThatLetsGoMakesTheClientForgetEverything)
{
    world.apps({{.instance_name = "db-1"}, {.instance_name = "db-2"}});
    world.relationships({{.src_guid = "S1", .dest_guid = "D1"}, {.src_guid = "S2", .dest_guid = "D2"}});
    manager.answer(50);
    start(group_element("g", 0, 0, 0, {"L1"}), schedule_element(1, 0, far_future, 300));
    log.expect(LOG_ERR, "Localhost is unprotected anymore");
    ASSERT_TRUE(eventually([&] { return !config_has("M-1") && !config_has("L1"); }));
    EXPECT_EQ(world.calls("Kav_delete_app"),
              (std::vector<std::string>{"Kav_delete_app db-1", "Kav_delete_app db-2"}));
    EXPECT_EQ(world.calls("tw_disk_unprotect"),
              (std::vector<std::string>{"tw_disk_unprotect S1", "tw_disk_unprotect S2"}));
    EXPECT_EQ(world.calls("Kav_delete_dev"),
              (std::vector<std::string>{"Kav_delete_dev 0 D1", "Kav_delete_dev 0 D2"}));
    expect_status(0, command::scan_client);
}

TEST_F(adoption, UnreachableManagerAllowsToWithdraw)
{
    write_config({.manager_guid = "M-1"}); // without any address
    daemon.start();
    const std::string failure = "Failed to connect to manager 'M-1'";
    log.expect(LOG_ERR, failure, log.expect(LOG_ERR, failure));
    log.tolerate(failure);
    expect_status(0, command::local_withdraw);
    EXPECT_FALSE(config_has("M-1"));
}

TEST_F(adoption, OnlyOneOfManyResetsRunsAndOthersAreNotKeptWaiting)
{
    daemon.tool("iscsiadm", "LOGOUT_TAKES=3\n" + std::string(initiator_tool).substr(1));
    adopt();
    expect_status(0, command::establish_channels, channel("iqn.one", "10.0.0.1"));
    std::vector<std::thread> releases;
    for (int i = 0; i < 8; ++i)
        releases.emplace_back([] { ask(command::del_client, pair("M-1")); });
    log.expect(LOG_INFO, "Shutdown iSCSI channels.");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(ask(command::local_list)); // although the log-out holds the client record
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    for (std::thread &release : releases)
        release.join();
    log.tolerate("Server(M-1) or client*");
    size_t resets = 0;
    for (const log_line &line : log.lines())
        resets += line.text == "Releasing all background task.";
    EXPECT_EQ(resets, 1U);
}
