// Every command at once from many clients, over both sockets, while timers fire and platform libraries fail
// and dawdle at random. The working process runs inside this program, so that its locks can be taken.
#include "config/config.h"
#include "daemon/worker.h"
#include "protocol/commands.h"
#include "tests/scripted/script.h"
#include "tests/support/client.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/run.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <random>
#include <thread>

namespace {
constexpr size_t client_count = 32;
constexpr size_t disk_count = 6;
constexpr char tools[] = "/usr/local/sbin";

using dice = std::minstd_rand;

size_t draw(dice &random, size_t count)
{
    return std::uniform_int_distribution<size_t>(0, count - 1)(random);
}

std::string guid_of(size_t number)
{
    return "0000000" + std::to_string(number) + "-0000-0000-0000-000000000000";
}

std::string any_disk(dice &random)
{
    return guid_of(draw(random, disk_count));
}

std::string any_group(dice &random)
{
    return "group-" + std::to_string(draw(random, 3));
}

std::string in_root(const std::string &content)
{
    return "<Tessaron>" + content + "</Tessaron>";
}

std::string attribute(const std::string &name, const std::string &value)
{
    return " " + name + "=\"" + value + "\"";
}

// A group's name or a disk's GUID with its kind, in either of which a schedule is kept.
std::string any_source(dice &random)
{
    return draw(random, 2) == 0 ? attribute("SourceType", "1") + attribute("Source", any_group(random))
                                : attribute("SourceType", "0") + attribute("Source", any_disk(random));
}

std::string any_times(dice &random)
{
    return attribute("StartTime", draw(random, 4) == 0 ? "0" : "1") +
           attribute("IntervalSeconds", std::to_string(draw(random, 4)));
}

std::string manager_group(dice &random)
{
    return in_root("<BGCreate" + attribute("BGName", any_group(random)) + "><SrcDisk" +
                   attribute("SrcGUID", any_disk(random)) + "/></BGCreate>");
}

std::string agent_group(dice &random)
{
    return in_root("<Group" + attribute("name", any_group(random)) + "><Disk" +
                   attribute("guid", any_disk(random)) + "/></Group>");
}

std::string backups(dice &random)
{
    return in_root("<BackupList><Backup" + attribute("SrcGUID", any_disk(random)) + "/></BackupList>");
}

std::string schedule_in(const std::string &element, dice &random)
{
    return in_root("<" + element + any_source(random) + "><Schedule" + any_times(random) + "/></" + element +
                   ">");
}

std::string manager(dice &random)
{
    return fake_manager::record("M-1", draw(random, 2) == 0 ? "127.0.0.1" : "127.0.0.2");
}

std::string nothing(dice &)
{
    return "";
}

struct command {
    uint32_t code;
    std::string (*body)(dice &random);
};

const command commands[] = {
    {1, nothing},
    {2, manager},
    {3, [](dice &) { return in_root(R"(<Server ID="M-1"/><Client ID="C-1"/>)"); }},
    {4,
     [](dice &random) {
         return in_root("<BackupList><Backup" + attribute("SrcGUID", any_disk(random)) +
                        attribute("KavGUID", "kav_{" + any_disk(random) + "}") + "/></BackupList><Schedule" +
                        any_source(random) + any_times(random) + "/>");
     }},
    {5,
     [](dice &) {
         return in_root(R"(<Channel InitiatorIqn="i" TargetIqn="t"><Path InitiatorIP="127.0.0.1")"
                        R"( TargetIP="127.0.0.1"/></Channel>)");
     }},
    {6, nothing},
    {8,
     [](dice &random) {
         return in_root("<Client" + attribute("Alias", "host " + std::to_string(draw(random, 100))) + "/>");
     }},
    {14, backups},
    {15, [](dice &random) { return schedule_in("Backup", random); }},
    {16, backups},
    {17, backups},
    {21,
     [](dice &random) { return in_root("<Snap" + any_source(random) + attribute("IsCluster", "0") + "/>"); }},
    {23, [](dice &random) { return in_root("<Snap" + attribute("SnapVolGUID", any_disk(random)) + "/>"); }},
    {45,
     [](dice &random) {
         return in_root("<DBSet" + attribute("InstanceName", "db-" + std::to_string(draw(random, 4))) + "/>");
     }},
    {46, manager_group},
    {48,
     [](dice &random) {
         return in_root("<RemBGDisk" + attribute("BGName", any_group(random)) +
                        attribute("SrcGUID", any_disk(random)) + "/>");
     }},
    {49,
     [](dice &random) {
         return in_root("<DBCfgDel" + attribute("InstanceName", "db-" + std::to_string(draw(random, 4))) +
                        "/>");
     }},
    {54, manager},
    {55, nothing},
    {57, nothing},
    {62, [](dice &random) { return in_root("<BGDelete" + attribute("BGName", any_group(random)) + "/>"); }},
    {69, manager_group},
    {30000, [](dice &random) { return in_root("<Snap" + any_source(random) + "/>"); }},
    {30001, [](dice &random) { return schedule_in("Snap", random); }},
    {30002, [](dice &random) { return in_root("<Snap" + any_source(random) + "/>"); }},
    // Of a group: for a disk that has no schedule this one blocks the client record, as it must.
    {30003,
     [](dice &random) {
         return in_root("<Snap SourceType=\"1\"" + attribute("Source", any_group(random)) + "/>");
     }},
    {30004, agent_group},
    {30005, nothing},
    {30006, agent_group},
    {30007, agent_group},
    {30008, agent_group},
    {30010, nothing},
    {30011, nothing},
};

// --- The world -----------------------------------------------------------------------------------------

std::vector<scripted_disk> all_disks()
{
    std::vector<scripted_disk> disks;
    for (size_t i = 0; i < disk_count; ++i)
        disks.push_back({.name = "lun" + std::to_string(i),
                         .path = "/dev/lun" + std::to_string(i),
                         .vendor = "QRZ",
                         .model = "KAVSolution",
                         .sectors = 4096});
    return disks;
}

// Half of the disks at most, so that some can be protected; now and then none, so that the client can be
// released.
std::vector<scripted_relationship> some_relationships(dice &random)
{
    std::vector<scripted_relationship> relationships;
    const size_t count = draw(random, 1 + disk_count / 2);
    for (size_t i = 0; i < count; ++i)
        relationships.push_back({.src_path = "/dev/lun" + std::to_string(i),
                                 .src_guid = guid_of(i),
                                 .dest_guid = guid_of(i + disk_count / 2),
                                 .sync_state = draw(random, 4) == 0 ? "Sync On" : "Sync Finished"});
    return relationships;
}

std::vector<scripted_app> some_apps(dice &random)
{
    std::vector<scripted_app> apps;
    const size_t count = draw(random, 4);
    for (size_t i = 0; i < count; ++i)
        apps.push_back({.instance_name = "db-" + std::to_string(i)});
    return apps;
}

class storm : public testing::Test {
protected:
    storm()
    {
        write_config({.guid = "C-1", .manager_guid = "M-1", .manager_ips = {"127.0.0.1"}});
        std::filesystem::create_directories("/var/lib/iscsi/ifaces");
        add_tool("get_db_home.sh", "echo 0");
        add_tool("iscsiadm", "exit $(($$ % 3 == 0))");
        add_tool("pgrep", "echo 1");
        setenv("PATH", (std::string(tools) + ":" + getenv("PATH")).c_str(), 1);
        world.disks(all_disks());
        for (size_t i = 0; i < disk_count; ++i)
            world.scsi_guid("/dev/lun" + std::to_string(i), guid_of(i));
        for (const char *function :
             {"tw_disk_protect", "tw_disk_unprotect", "tw_disk_resync", "tw_disk_stop_sync",
              "kav_call_disk_markcdp", "kav_call_grp_markcdp", "Kav_connect_db_flush_cfg"})
            world.always(function, "0|0|-1");
        for (const char *function :
             {"Kav_delete_app", "Kav_delete_dev", "kavdisk_rescan_dev", "kav_device_probe_all"})
            world.always(function, "1|0");
        for (const char *function : {"kav_call_grp_markcdp", "kavdisk_get_devs", "tw_disk_stat"})
            world.delay(function, 0.01);
    }

    static void add_tool(const char *name, const char *script)
    {
        const std::string path = std::string(tools) + "/" + name;
        write_file(path, std::string("#!/bin/sh\n") + script + "\n");
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }

    void change_world(dice &random)
    {
        world.relationships(some_relationships(random));
        world.apps(some_apps(random));
        manager_.answer(draw(random, 20) == 0 ? 50 : 0, fake_manager::record("M-1", "127.0.0.1"));
    }

    // Whatever is under way: the file that the record's lock guards is whole.
    static void check_config()
    {
        const std::lock_guard held(g_client->lock);
        EXPECT_TRUE(qel_load());
    }

    // One connection, one command. The answer's status is counted.
    void send_one(dice &random)
    {
        const command &one = commands[draw(random, std::size(commands))];
        const std::string body = draw(random, 50) == 0 ? "<Tessaron><" : one.body(random);
        const peer connection = draw(random, 2) == 0 ? connect_unix() : connect_tcp();
        EXPECT_TRUE(connection.send(frame(request_head(one.code, body.size()), body)));
        const std::optional<reply> answer = parse_reply(connection.receive(120s).bytes);
        ASSERT_TRUE(answer) << one.code << " " << body;
        EXPECT_EQ(answer->head.cmd, one.code);
        const std::lock_guard held(statuses_lock_);
        ++statuses_[{one.code, answer->head.ret}];
    }

    // Whoever leaves the loop must see what was done before: a command that failed to come back ends it.
    void play(std::chrono::seconds duration)
    {
        std::atomic<bool> ends{false};
        std::vector<std::jthread> clients;
        for (unsigned i = 0; i < client_count; ++i)
            clients.emplace_back([&, i] {
                for (dice random(i + 1); !ends && !HasFatalFailure();)
                    send_one(random);
            });
        dice random(client_count + 1);
        const auto end = std::chrono::steady_clock::now() + duration;
        for (int round = 0; std::chrono::steady_clock::now() < end; ++round) {
            if (round % 10 == 0)
                change_world(random);
            check_config();
            std::this_thread::sleep_for(100ms);
        }
        ends = true;
    }

    void print_statuses() const
    {
        for (const auto &[command, count] : statuses_)
            printf("command %5u status %5u: %zu\n", command.first, command.second, count);
    }

    fake_folder tools_{tools};
    script world;
    fake_manager manager_;
    std::mutex statuses_lock_;
    std::map<std::pair<uint32_t, uint16_t>, size_t> statuses_;
};

size_t thread_count()
{
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(threads), end(threads)));
}

// When nothing goes on. A heartbeat may be under way at any one moment, but not for a whole second.
size_t resting_threads()
{
    size_t fewest = thread_count();
    for (int i = 0; i < 100; ++i) {
        fewest = std::min(fewest, thread_count());
        std::this_thread::sleep_for(10ms);
    }
    return fewest;
}

std::chrono::seconds duration()
{
    const char *seconds = getenv("QELCD_STORM_SECONDS");
    return std::chrono::seconds(seconds ? atoi(seconds) : 10);
}
} // namespace

TEST_F(storm, EveryClientIsAnsweredAndNothingIsLeftBehind)
{
    std::thread(_main).detach();
    ASSERT_TRUE(eventually(is_serving));
    const size_t at_rest = resting_threads();
    play(duration());
    world.relationships({});
    EXPECT_TRUE(eventually(
        [] { return ask(3, in_root(R"(<Server ID="M-1"/><Client ID="C-1"/>)"))->head.ret != 10000; }));
    EXPECT_TRUE(eventually([&] { return thread_count() <= at_rest; }, 60s)) << thread_count() << " threads";
    {
        const std::lock_guard held(g_client->lock);
        const std::string left = read_file(config_file_path);
        qel_save(g_client);
        EXPECT_EQ(read_file(config_file_path), left) << "the file is what the record is";
        EXPECT_TRUE(g_client->cdpsch_list.empty());
        EXPECT_TRUE(g_client->group_list.empty());
    }
    print_statuses();
}

// The working process never returns; what it uses must not be taken down under it.
int main(int argc, char **argv)
{
    const int status = run_in_private_host(argc, argv);
    fflush(stdout);
    std::quick_exit(status);
}
