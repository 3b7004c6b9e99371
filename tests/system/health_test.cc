// What qelc says of a whole host: its state at one look, as metrics, and what changes.
#include "platform/linux/state/progress.h"
#include "tests/system/tools_fixture.h"

#include <csignal>
#include <filesystem>
#include <fstream>

namespace {
class health : public mirror_tools {
protected:
    health()
    {
        std::filesystem::remove_all("/var/lib/kavcdpagt");
        std::filesystem::create_directories("/var/lib/kavcdpagt");
        std::filesystem::remove_all("/var/lib/qelc-manager");
    }

    static std::string ago(uint64_t seconds)
    {
        const auto point = time(nullptr) - static_cast<time_t>(seconds);
        char text[32];
        strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", gmtime(&point));
        return text;
    }

    static void note_mark(uint64_t seconds_ago, const std::string &rest)
    {
        std::ofstream("/var/lib/kavcdpagt/journal", std::ios::app) << ago(seconds_ago) << " " << rest << "\n";
    }

    // How far the mirror of that disk is, as a library on this host would tell.
    static void tell_level(int number, uint64_t seconds_ago)
    {
        constexpr uint64_t size = 100 << 20;
        const std::string text = std::to_string(number);
        write_progress({"L" + text, "M" + text, size, size, 0, 9, 4096, false,
                        seconds_since_boot() - seconds_ago, tracked_writes::yes, ""});
    }

    // What a manager on this host has saved of it.
    static void save_heartbeat(uint64_t seconds_ago, const std::string &id = config_settings().guid)
    {
        std::filesystem::create_directories("/var/lib/qelc-manager");
        const std::string last = std::to_string(static_cast<uint64_t>(time(nullptr)) - seconds_ago);
        write_file(
            "/var/lib/qelc-manager/hosts",
            filled(
                R"({"hosts":[{"id":"%","name":"h","address":"a","ips":"","first":%,"last":%,"mirrors":0}]})",
                id, last, last));
    }

    // Its service, which knows that; it takes no heartbeats.
    static pid_t start_service()
    {
        const pid_t service = stoi(output_of("$BIN/standin-manager --state /var/lib/qelc-manager --port " +
                                             std::to_string(client_port + 2) + " >/dev/null 2>&1 & echo $!"));
        EXPECT_TRUE(eventually([] { return run("$BIN/standin-manager hosts").first == 0; }));
        return service;
    }

    static void stop_service(pid_t service)
    {
        kill(service, SIGKILL);
        EXPECT_TRUE(eventually([&] { return !is_alive(service); }));
    }

    // The exit status and the first line. The answer for programs goes to ANSWERS.
    std::string status(const std::string &options = "")
    {
        const std::string command = "TZ=UTC $BIN/qelc status " + options;
        const outcome seen = run(command);
        answers += run(command + " --json").second;
        return std::to_string(seen.first) + " " + seen.second.substr(0, seen.second.find('\n'));
    }

    std::string answers;
    static constexpr uint64_t an_hour = 3690; // and so much that it stays 61 minutes for a while
};
} // namespace

TEST_F(health, TheWorstComesFirstAndDecidesTheExitStatus)
{
    start("", schedule_element(2, static_cast<uint64_t>(time(nullptr)) - an_hour, far_future, 300));
    const auto level = mirror(1, "Sync Finished", 100), copied = mirror(1, "Sync On", 45),
               follows = mirror(3, "Recovery On", 99), scheduled = mirror(2, "Sync Finished", 100);
    const struct {
        std::vector<scripted_relationship> mirrors;
        std::string options, line;
    } cases[] = {
        {{scheduled}, "", "1 WARNING  private-host: sda2 has no snapshot, its schedule began 61 min ago"},
        {{scheduled, level}, "--snapshot-age 2h", "0 OK  private-host: all 2 mirrors are level"},
        {{level, follows}, "", "2 CRITICAL  private-host: mirror of sda3 is 61 min behind"},
        {{level, follows}, "--behind 30min", "1 WARNING  private-host: mirror of sda3 is 61 min behind"},
        {{level, follows},
         "--behind 2h",
         "0 OK  private-host: 1 of 2 mirrors level, what was written last follows"},
        {{copied, follows}, "--behind 2h", "1 WARNING  private-host: mirror of sda1 is being copied, 45 %"},
        {{copied, mirror(4, "Sync Finished", 100, "Down")},
         "",
         "2 CRITICAL  private-host: mirror of sda4 is down"},
    };
    for (const auto &one : cases) {
        world.relationships(one.mirrors);
        tell_level(3, an_hour);
        EXPECT_EQ(status(one.options), one.line);
    }
    expect_valid(answers);
}

TEST_F(health, ADaemonThatDoesNotAnswerIsTold)
{
    world.relationships({mirror(1, "Sync Finished", 100)});
    start();
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    EXPECT_EQ(status(), "0 OK  private-host: the mirror is level") << "the next one is waited for";
    qelcd::stop();
    EXPECT_EQ(status(), "2 CRITICAL  private-host: qelcd does not run");
    write_file(config_file_path, "<Tessaron/>");
    EXPECT_EQ(status(), "2 CRITICAL  private-host: qelcd does not run "
                        "(/etc/kavtessaron/qelcd.conf: there is no ClientPort; write "
                        "<ClientPort>N</ClientPort>, N from 1 to 65535)");
    EXPECT_NE(run("$BIN/qelc metrics").second.find("\nqelcd_up 0\n"), std::string::npos);
    write_config();
    daemon.start();
    log.tolerate("*");
    EXPECT_EQ(status(), "3 UNKNOWN  private-host: no manager has adopted this host");
    expect_valid(answers);
}

TEST_F(health, SnapshotsAreJudgedByTheJournal)
{
    world.relationships({mirror(1, "Sync Finished", 100), mirror(2, "Sync Finished", 100)});
    start(group_element("my day", past, far_future, 86400, {"L2"}));
    note_mark(9000, "disk M1 ok 2031-05-01T22-00-00Z-sda1");
    note_mark(8000, "a line that is none");
    note_mark(7000, "group my%20day M2 failed: nothing would keep M2");
    const std::string failed = "1 WARNING  private-host: the last snapshot of group my day failed, at ";
    const std::string line = status();
    EXPECT_TRUE(line.starts_with(failed) && line.ends_with(" UTC (nothing would keep M2)")) << line;
    note_mark(an_hour, "group my%20day M2 ok");
    const outcome page = run("TZ=UTC $BIN/qelc status");
    EXPECT_EQ(page.first, 0) << page.second;
    EXPECT_NE(page.second.find("(group my day)\n             next 20"), std::string::npos) << page.second;
    EXPECT_NE(page.second.find("\n             failed since yesterday: 1 of 2 disks and groups\n"),
              std::string::npos)
        << page.second;
    expect_valid(answers);
}

TEST_F(health, TheLastHeartbeatIsToldWhereItsManagerRunsOnTheHost)
{
    constexpr uint64_t two_hours = 7300; // and so much that it stays 2 h for a while
    start();
    const auto manager_line = [] { return output_of("$BIN/qelc status | grep '  manager '"); };
    const std::string unknown = ", last heartbeat not known here\n";
    EXPECT_EQ(manager_line(), "  manager    127.0.0.1" + unknown);
    save_heartbeat(two_hours);
    const std::string late = "private-host: no heartbeat for 2 h";
    EXPECT_EQ(manager_line(), "  manager    127.0.0.1" + unknown) << "the manager of the test takes them";
    const pid_t service = start_service();
    EXPECT_EQ(status(), "2 CRITICAL  " + late);
    EXPECT_EQ(status("--heartbeat 1h"), "1 WARNING  " + late);
    EXPECT_EQ(status("--heartbeat 4h"), "0 OK  private-host: nothing is mirrored");
    EXPECT_EQ(manager_line(), "  manager    127.0.0.1, last heartbeat 2 h ago\n");
    EXPECT_NE(answers.find(R"("heartbeat_age":7)"), std::string::npos) << answers;
    EXPECT_NE(run("$BIN/qelc metrics").second.find("\nqelcd_heartbeat_age_seconds 7"), std::string::npos);
    EXPECT_EQ(
        output_of("! command -v promtool >/dev/null || $BIN/qelc metrics | promtool check metrics 2>&1"), "");
    stop_service(service);
    save_heartbeat(two_hours, "another");
    const pid_t next = start_service();
    EXPECT_EQ(status("--heartbeat 1s"), "1 WARNING  private-host: no heartbeat has reached qelc-manager");
    stop_service(next);
    save_heartbeat(two_hours);
    qelcd::stop();
    log.tolerate("*");
    const std::string free_port = "<ServerPort>" + std::to_string(client_port + 3) + "</ServerPort>";
    write_config({.manager_guid = "M-1", .manager_ips = {"192.0.2.7"}, .more = free_port});
    daemon.start();
    EXPECT_EQ(manager_line(), "  manager    192.0.2.7" + unknown) << "the list is one of a former manager";
    output_of("ip address add 192.0.2.7/32 dev lo");
    EXPECT_EQ(status(), "2 CRITICAL  " + late + " (qelc-manager does not run)");
    EXPECT_EQ(manager_line(), "  manager    192.0.2.7, last heartbeat 2 h ago\n");
    expect_valid(answers);
}

TEST_F(health, MetricsAreThoseOfTheHost)
{
    world.relationships({mirror(1, "Sync On", 45), mirror(3, "Recovery On", 99)});
    start("", schedule_element(1, past, far_future, 3600));
    note_mark(an_hour, "disk M1 ok");
    note_mark(60, "disk M1 failed: a \"reason\"");
    tell_level(3, 100);
    const std::string page = run("$BIN/qelc metrics").second;
    for (const char *line :
         {"qelcd_up 1", "qelcd_adopted 1", "qelcd_config_usable 1",
          R"(qelcd_mirror_state{disk="sda1",guid="L1",mirror="M1",state="synchronising"} 1)",
          R"(qelcd_mirror_state{disk="sda1",guid="L1",mirror="M1",state="mirror_down"} 0)",
          R"(qelcd_mirror_done_ratio{disk="sda1",guid="L1",mirror="M1"} 0.45)",
          R"(qelcd_mirror_behind_bytes{disk="sda3",guid="L3",mirror="M3"} 36864)",
          R"(qelcd_snapshot_failures_total{disk="sda1"} 1)", R"(qelcd_snapshot_last_failed{disk="sda1"} 1)",
          R"(qelcd_snapshot_interval_seconds{disk="sda1"} 3600)"})
        EXPECT_NE(page.find(std::string("\n") + line + "\n"), std::string::npos) << line << page;
    if (output_of("command -v promtool").empty())
        GTEST_SKIP() << "promtool is not installed (Debian package prometheus)";
    EXPECT_EQ(run("$BIN/qelc metrics | promtool check metrics"), (outcome{0, ""}));
}

TEST_F(health, EachChangeIsALine)
{
    world.relationships({mirror(1, "Sync On", 10), mirror(2, "Sync Finished", 100)});
    start();
    output_of("$BIN/qelc events >/var/tmp/events &");
    const auto comes = [](const std::string &piece) {
        return eventually([&] { return read_file("/var/tmp/events").find(piece) != std::string::npos; }, 30s);
    };
    EXPECT_TRUE(comes(R"("event":"begin","host":"private-host","daemon":"up","adopted":true)"));
    world.relationships({mirror(1, "Sync On", 10, "Down"), mirror(3, "UnSync", 0)});
    EXPECT_TRUE(
        comes(R"("event":"mirror","name":"sda1","guid":"L1","now":"mirror down","was":"synchronising"})"));
    EXPECT_TRUE(comes(R"("name":"sda3","guid":"L3","now":"not synchronised"})"));
    EXPECT_TRUE(comes(R"("name":"sda2","guid":"L2","now":"no longer a mirror","was":"synchronised"})"));
    note_mark(0, "disk M1 ok name-1");
    EXPECT_TRUE(comes(R"("event":"snapshot","name":"sda1","snapshot":"name-1","now":"taken"})"));
    std::filesystem::rename("/var/lib/kavcdpagt/journal", "/var/lib/kavcdpagt/journal.1");
    note_mark(0, "group g M1,M2 failed: no room");
    EXPECT_TRUE(comes(R"("event":"snapshot","name":"group g","now":"failed","reason":"no room"})"));
    EXPECT_EQ(output_of("grep -c name-1 /var/tmp/events"), "1\n");
    kill(qelcd::worker(), SIGKILL);
    EXPECT_TRUE(comes(R"("event":"daemon","now":"restarted","was":"up"})"));
    qelcd::stop();
    EXPECT_TRUE(comes(R"("event":"daemon","now":"down","was":"up","reason":)"));
    log.tolerate("*");
    write_config();
    daemon.start();
    EXPECT_TRUE(comes(R"("event":"daemon","now":"up","was":"down"})"));
    EXPECT_TRUE(comes(R"("event":"adoption","name":"127.0.0.1","now":"released","was":"adopted"})"));
}
