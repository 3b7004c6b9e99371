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
#include "tests/support/processes.h"
#include "tests/support/requests.h"
#include "tests/support/run.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
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

struct form {
    uint32_t code;
    // In which something drawn stands in the places of $d, a disk, $g, a group, $b, a database, and $0 to $9,
    // a number below that one.
    std::string body = "";
};

const form commands[] = {
    {command::scan_client},
    {command::add_client, manager_document("M-1", "127.0.0.$2")},
    {command::del_client, pair_document("M-1", "C-1")},
    {command::add_backup,
     in_root(
         R"(<BackupList><Backup SrcGUID="$d" KavGUID="kav_{$d}"/></BackupList><Schedule SourceType="0" Source="$d")"
         R"( StartTime="$4" IntervalSeconds="$4"/>)")},
    {command::add_backup,
     in_root(
         R"(<BackupList><Backup SrcGUID="$d" KavGUID="kav_{$d}"/></BackupList><Schedule SourceType="1" Source="$g")"
         R"( StartTime="$4" IntervalSeconds="$4"/>)")},
    {command::establish_channels, channel_document("t", "127.0.0.1", "127.0.0.1")},
    {command::get_client_info},
    {command::rename_client, in_root(R"(<Client Alias="host $9"/>)")},
    {command::del_backup, backup_document({"$d"})},
    {command::set_cdp_schedule, schedule_document("Backup", 0, "$d", "$4", "$4")},
    {command::set_cdp_schedule, schedule_document("Backup", 1, "$g", "$4", "$4")},
    {command::init_mirror, backup_document({"$d"})},
    {command::cancel_init_mirror, backup_document({"$d"})},
    {command::create_snapshot, snap_document(0, "$d")},
    {command::create_snapshot, snap_document(1, "$g")},
    {command::snap_restore, in_root(R"(<Snap SnapVolGUID="$d"/>)")},
    {command::db_set, in_root(R"(<DBSet InstanceName="$b"/>)")},
    {command::bg_create, group_document("$g", {"$d"})},
    {command::rem_disk_from_bg, in_root(R"(<RemBGDisk BGName="$g" SrcGUID="$d"/>)")},
    {command::dbcfg_del, in_root(R"(<DBCfgDel InstanceName="$b"/>)")},
    {command::refresh_server, manager_document("M-1", "127.0.0.$2")},
    {command::rescan_devices},
    {command::nop_command},
    {command::del_backup_grp, in_root(R"(<BGDelete BGName="$g"/>)")},
    {command::add_disk_to_grp, group_document("$g", {"$d"})},
    {command::kav_create_cdp, snap_document(0, "$d")},
    {command::kav_create_cdp, snap_document(1, "$g")},
    {command::kav_set_cdp_schedule, schedule_document("Snap", 0, "$d", "$4", "$4")},
    {command::kav_set_cdp_schedule, schedule_document("Snap", 1, "$g", "$4", "$4")},
    {command::kav_get_cdp_schedule, snap_document(0, "$d")},
    {command::kav_get_cdp_schedule, snap_document(1, "$g")},
    // Of a group: for a disk that has no schedule this one blocks the client record, as it must.
    {command::kav_del_cdp_schedule, snap_document(1, "$g")},
    {command::kav_create_group, agent_group_document("$g", {"$d"})},
    {command::kav_get_group},
    {command::kav_delete_group, agent_group_document("$g", {"$d"})},
    {command::kav_add_member, agent_group_document("$g", {"$d"})},
    {command::kav_del_member, agent_group_document("$g", {"$d"})},
    {command::local_list},
    {command::local_withdraw},
};

std::string body_of(const form &form, dice &random)
{
    std::string body = form.body;
    for (size_t at; (at = body.find('$')) != std::string::npos;) {
        const char what = body[at + 1];
        body.replace(at, 2,
                     what == 'd'   ? guid_of(draw(random, disk_count))
                     : what == 'g' ? "group-" + std::to_string(draw(random, 3))
                     : what == 'b' ? "db-" + std::to_string(draw(random, 4))
                                   : std::to_string(draw(random, static_cast<size_t>(what - '0'))));
    }
    return body;
}

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
        manager_.answer(draw(random, 20) == 0 ? 50 : 0, manager_document("M-1", "127.0.0.1"));
    }

    // Whatever is under way: the file that the record's lock guards is whole.
    static void check_config()
    {
        const std::lock_guard held(g_client->lock);
        EXPECT_TRUE(qel_load());
    }

    // One connection, one command.
    void send_one(dice &random)
    {
        const form &one = commands[draw(random, std::size(commands))];
        const std::string body = draw(random, 50) == 0 ? "<Tessaron><" : body_of(one, random);
        const peer connection = draw(random, 2) == 0 ? connect_unix() : connect_tcp();
        EXPECT_TRUE(connection.send(frame(request_head(one.code, body.size()), body)));
        const std::optional<reply> answer = parse_reply(connection.receive(120s).bytes);
        ASSERT_TRUE(answer) << one.code << " " << body;
        EXPECT_EQ(answer->head.cmd, one.code);
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

    script world;
    fake_manager manager_;
};

// When nothing goes on. A heartbeat may be under way at any one moment, but not for a whole second.
size_t resting_threads()
{
    size_t fewest = thread_count(getpid());
    for (int i = 0; i < 100; ++i) {
        fewest = std::min(fewest, thread_count(getpid()));
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
    EXPECT_TRUE(
        eventually([] { return ask(command::del_client, pair_document("M-1", "C-1"))->head.ret != 10000; }));
    EXPECT_TRUE(eventually([&] { return thread_count(getpid()) <= at_rest; }, 60s))
        << thread_count(getpid()) << " threads";
    {
        const std::lock_guard held(g_client->lock);
        const std::string left = read_file(config_file_path);
        qel_save(g_client);
        EXPECT_EQ(read_file(config_file_path), left) << "the file is what the record is";
        EXPECT_TRUE(g_client->cdpsch_list.empty());
        EXPECT_TRUE(g_client->group_list.empty());
    }
}

// The working process never returns; what it uses must not be taken down under it.
int main(int argc, char **argv)
{
    const int status = run_in_private_host(argc, argv);
    fflush(stdout);
    std::quick_exit(status);
}
