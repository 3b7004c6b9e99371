// The verbs of qelc that take several steps at once.
#include "tests/system/tools_fixture.h"

#include <csignal>

namespace {
using tools = with_tools<system_test>;

constexpr char no_port[] = "<Tessaron>\n<ClientPort>x</ClientPort><ServerPort>1</ServerPort></Tessaron>\n";

bool says(const char *path, const std::string &text)
{
    return eventually([&] { return read_file(path).find(text) != std::string::npos; });
}
} // namespace

// --- init --------------------------------------------------------------------------------------------

TEST_F(tools, InitMakesAHostItsOwnManagerWhichTakesItsHeartbeats)
{
    output_of("rm -rf /var/lib/qelc-manager");
    daemon.start();
    log.tolerate("Failed to process job"); // a beat between the adoption and the start of heartbeats
    const std::string server_port = std::to_string(client_port + 1);
    const auto start_manager = [](const std::string &options) {
        write_file("/var/tmp/served", "");
        const std::string pid =
            output_of("$BIN/standin-manager --port " + options + " >>/var/tmp/served 2>&1 & echo $!");
        EXPECT_TRUE(says("/var/tmp/served", "listening on "));
        return stoi(pid);
    };
    const auto stop_manager = [](pid_t manager) {
        kill(manager, SIGKILL);
        EXPECT_TRUE(eventually([&] { return !is_alive(manager); }));
    };
    const pid_t manager = start_manager(server_port);
    const std::string before = std::string(config_file_path) +
                               ": is there, and stays as it is\nqelcd: runs already\n"
                               "qelc-manager: runs already: port " +
                               server_port + " is taken\nprivate-host: is adopted";
    const std::string command = "$BIN/qelc init 2>/dev/null";
    EXPECT_EQ(run("$BIN/qelc init --dry-run | tail -n 1").second,
              "private-host: adopted by its own manager\n");
    EXPECT_EQ(run("$BIN/qelc mirrors").first, 5) << "that was a dry run";
    EXPECT_EQ(run(command),
              (outcome{0, before + ", by its own manager\nqelc-manager: whether heartbeats come is "
                                   "not known here; journalctl -t qelcd names those that fail\n"}));
    EXPECT_TRUE(says("/var/tmp/served", " host private-host ")) << read_file("/var/tmp/served");
    EXPECT_EQ(run("$BIN/qelc mirrors"), (outcome{0, "no mirrors\n"}));
    log.tolerate("*"); // for a moment nobody takes the heartbeats
    const std::string with_list = " --state /var/lib/qelc-manager";
    const pid_t elsewhere = start_manager(std::to_string(client_port + 2) + with_list);
    EXPECT_EQ(run("timeout 3 $BIN/qelc init"), (outcome{124, "a heartbeat is awaited for up to 75 s\n"}));
    stop_manager(elsewhere);
    stop_manager(manager);
    const pid_t next = start_manager(server_port + with_list);
    EXPECT_EQ(run(command),
              (outcome{0, before + " already, by its own manager\nqelc-manager: has a heartbeat of "
                                   "private-host\n"}));
    expect_valid(run("$BIN/qelc --json init").second);
    qelcd::stop();
    stop_manager(next);
}

TEST_F(tools, InitLeavesAHostToItsManager)
{
    write_config({.manager_guid = "M", .manager_ips = {"127.0.0.9"}});
    daemon.start();
    log.tolerate("*"); // nobody takes the heartbeats
    EXPECT_EQ(run("$BIN/qelc init 2>/dev/null"),
              (outcome{0, std::string(config_file_path) +
                              ": is there, and stays as it is\nqelcd: runs already\n"
                              "private-host: is adopted already, by the manager at 127.0.0.9\n"}));
}

TEST_F(tools, InitDoesNotGoOnAfterAStepThatFailed)
{
    write_file(config_file_path, no_port);
    const std::string fault = "the daemon cannot use it: line 2: ClientPort \"x\" is no port";
    const outcome end = run("$BIN/qelc --json init");
    EXPECT_EQ(end.first, 1);
    EXPECT_NE(end.second.find(R"("status":"refused","reason":"the daemon cannot use it: line 2: ClientPort)"),
              std::string::npos)
        << end.second;
    EXPECT_EQ(end.second.find("service"), std::string::npos) << end.second;
    expect_valid(end.second);
    EXPECT_EQ(read_file(config_file_path), no_port);
    EXPECT_EQ(run("$BIN/qelc init --config-only").first, 1);
    EXPECT_EQ(run("$BIN/qelc init --config-only /var/tmp/new/qelcd.conf").first, 0);
    EXPECT_EQ(run("$BIN/qelc check-config /var/tmp/new/qelcd.conf").first, 0);
    EXPECT_EQ(run("$BIN/qelc init /var/tmp/new/qelcd.conf").first, 2) << "the daemon reads another one";
}

// --- mirror ------------------------------------------------------------------------------------------

TEST_F(mirror_tools, AMirrorInOneStepEndsWithAVerdict)
{
    const struct {
        const char *copies; // what the library answers
        const char *state;  // of the mirror, in the end
        int status;
        std::string end; // of what it says, without a time
    } cases[] = {
        {"0", "Sync Finished", 0, " sda1 synchronised 100 %\nsda1: is level\n"},
        {"0", "UnSync", 1, " sda1 not synchronised 100 %\nerror: not level: sda1: "},
        {"-1", "UnSync", 1, "error: mirror sda1 m1 could not be done: sda1: the daemon has refused it"},
    };
    start();
    log.tolerate("*");
    for (const auto &[copies, state, status, end] : cases) {
        world.relationships({});
        world.once("tw_disk_protect", "0");
        world.once("tw_disk_resync", copies);
        world.delay("tw_disk_protect", 1.5); // which leaves time to change the world
        const auto is_called = [&](const char *function, size_t times) {
            return eventually([&] { return world.calls(function).size() > times; });
        };
        const size_t done = world.calls("tw_disk_protect").size();
        output_of("{ $BIN/qelc mirror --yes sda1 m1; echo ended $?; } >/var/tmp/mirrored 2>&1 &");
        EXPECT_TRUE(is_called("tw_disk_protect", done));
        world.relationships({mirror(1, "UnSync", 0)});
        EXPECT_TRUE(is_called("tw_disk_resync", done));
        if (copies == std::string("0")) {
            world.relationships({mirror(1, "Sync On", 40)});
            EXPECT_TRUE(says("/var/tmp/mirrored", "synchronising 40 %"));
            world.relationships({mirror(1, state, 100)});
        }
        EXPECT_TRUE(says("/var/tmp/mirrored", "ended " + std::to_string(status)));
        const std::string seen = read_file("/var/tmp/mirrored");
        EXPECT_NE(seen.find(end), std::string::npos) << seen;
    }
}
