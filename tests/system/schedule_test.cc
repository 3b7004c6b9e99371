// The schedules of snapshots: set, changed and removed, and run by the daemon on its own.
#include "tests/system/adopted_test.h"

#include <csignal>

namespace {
constexpr uint32_t get_client_info = 6, local_list = 30010;
constexpr char disk_snapshot[] = "kav_call_disk_markcdp", group_snapshot[] = "kav_call_grp_markcdp";

class schedule : public adopted_test {
protected:
    schedule()
    {
        world.always(disk_snapshot, "0");
        world.always(group_snapshot, "0");
        world.relationships({{.src_guid = "L1", .dest_guid = "M1"}, {.src_guid = "L2", .dest_guid = "M2"}});
    }

    void set(int type, const char *source, uint64_t start, unsigned interval)
    {
        expect_answer(0, set_cdp_schedule, new_times(type, source, start, interval));
    }

    size_t count(const char *snapshot) const { return world.calls(snapshot).size(); }

    // Snapshots of disks and of groups within that time, after a second for those that are under way.
    std::pair<double, double> taken(std::chrono::seconds duration) const
    {
        std::this_thread::sleep_for(1s);
        const size_t of_disks = count(disk_snapshot), of_groups = count(group_snapshot);
        std::this_thread::sleep_for(duration);
        return {count(disk_snapshot) - of_disks, count(group_snapshot) - of_groups};
    }
};
} // namespace

TEST_F(schedule, CommandSetsChangesAndRemoves)
{
    const auto group = [](uint64_t con, uint64_t next, unsigned interval) {
        return group_element("g", con, next, interval, {"L1"});
    };
    const std::string none = group(0, 0, 0), set = group(past, past + 1200, 600);
    const std::string first = schedule_element(1, far_future, far_future, 60);
    const std::string second = schedule_element(2, past, past + 1200, 600);
    const auto expect = [&](const std::string &request, int status, const std::string &groups,
                            const std::string &schedules, const texts &steps, int level = LOG_INFO) {
        const size_t mark = log.size();
        expect_answer(status, set_cdp_schedule, request);
        expect_saved(groups, schedules);
        expect_steps(mark, steps, level);
    };
    const std::string times =
        filled(", console start time: %, start time: %, interval: 600.", past, past + 1200);
    start(none);
    expect(new_times(1, "nobody", past, 600), 1, none, "",
           {"Recv cmd: SET_CDP_SCHEDULE", "Updaing CDP schedule for group nobody.", "Cou cou ! I'm here.",
            "Failed to find group."});
    expect(new_times(1, "g", past, 600), 0, set, "",
           {filled("Received new schedule, console start time: %, interval: 600", past),
            "New schedule for group g" + times, "Background-running CDP schedule for group g is updated.",
            "Config file is updated for group g.", "Complete cmd SET_CDP_SCHEDULE."});
    expect(new_times(1, "g", 0, 0), 0, none, "",
           {"Background running CDP schedule for group g is removed.", "Complete cmd SET_CDP_SCHEDULE."});
    expect(new_times(1, "g", past, 0), 0, group(past, past, 0), "", {"Config file is updated for group g."});
    expect(new_times(0, "L9", past, 600), 1, group(past, past, 0), "",
           {"Failed to find disk L9 in existing schedule list.", "Looking for disk L9 in backup list.",
            "Failed to find disk L9 in backup list."});
    expect(new_times(0, "L2", 0, 0), 1, group(past, past, 0), "",
           {"No schedule is applied.", "Failed to find disk L2 in backup list."});
    expect(new_times(1, "g", past, 600), 0, set, "", {"Complete cmd SET_CDP_SCHEDULE."});
    expect(new_times(2, "L2", past, 600), 0, set, second,
           {"Updating CDP schedule for disk L2.", "Looking for disk L2 in existing schedule list.",
            "New schedule for disk L2" + times, "Config fie is updated for disk L2.",
            "New CDP schedule registered.", "Background-running CDP schedule for disk L2 is registered.",
            "Complete cmd SET_CDP_SCHEDULE."});
    expect(new_times(0, "L1", far_future, 60), 0, set, second + first,
           {"Config fie is updated for disk L1."});
    expect(new_times(0, "L2", 0, 60), 0, set, schedule_element(2, 0, 0, 60) + first,
           {"Config file is updated for disk L2."});
    expect(new_times(0, "L2", past, 600), 0, set, second + first,
           {"Remove old CDP schedule.", "Background-running CDP schedule for disk L2 is updated."});
    expect(new_times(0, "L2", 0, 0), 0, set, first,
           {"Background-running CDP Schedule for disk L2 is removed."});
    for (const auto &[request, error] :
         {std::pair("<Tessaron><Backup Source='g'><Schedule/></Backup></Tessaron>",
                    "Failed to retrieve property SourceType of node Backup."),
          std::pair("<Tessaron><Schedule/><Backup/></Tessaron>", "Failed to retrieve node Schedule."),
          std::pair("<Tessaron/>", "Failed to retrieve node Backup."),
          std::pair("<Backup/>", "Invalid XML format, unexpected root element.")})
        expect(request, 1, set, first, {error}, LOG_ERR);
}

TEST_F(schedule, FiresEveryTwoSecondsWhateverElseIsAsked)
{
    start();
    set(0, "L1", past, 2);
    ASSERT_TRUE(eventually([&] { return count(disk_snapshot) == 1; }));
    const auto end = std::chrono::steady_clock::now() + 20s;
    for (unsigned at = 0; std::chrono::steady_clock::now() < end; ++at) {
        EXPECT_TRUE(ask(at % 2 ? local_list : get_client_info));
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_NEAR(static_cast<double>(count(disk_snapshot) - 1), 10, 1);
    EXPECT_EQ(world.calls(disk_snapshot).back(), "kav_call_disk_markcdp {M1}");
}

TEST_F(schedule, OnlyTheNewestOfADiskAndOfAGroupRuns)
{
    start(group_element("g", 1, 1, 1, {"L1"}), schedule_element(1, 1, 1, 1));
    ASSERT_TRUE(eventually([&] { return count(disk_snapshot) >= 2 && count(group_snapshot) >= 2; }));
    set(0, "L1", past, 4);
    set(1, "g", far_future, 0); // lets the old one run on
    const auto [slower, unchanged] = taken(8s);
    EXPECT_NEAR(slower, 2, 1);
    EXPECT_NEAR(unchanged, 8, 2);
    set(0, "L1", past, 1);
    set(1, "g", past, 4);
    const auto [faster, slower_group] = taken(8s);
    EXPECT_NEAR(faster, 8, 2);
    EXPECT_NEAR(slower_group, 2, 1);
    set(0, "L1", 0, 0);
    set(1, "g", 0, 0);
    EXPECT_EQ(taken(6s), std::pair(0.0, 0.0));
}

TEST_F(schedule, FiresOnAfterTheWorkingProcessWasKilled)
{
    start("", schedule_element(3, past, past, 600) + schedule_element(4, past, far_future, 600));
    set(0, "L1", past, 2);
    ASSERT_TRUE(eventually([&] { return count(disk_snapshot) != 0; }));
    const size_t mark = log.size();
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    ASSERT_TRUE(eventually([&] { return !is_alive(worker); }));
    const size_t enough = count(disk_snapshot) + 3;
    EXPECT_TRUE(eventually([&] { return count(disk_snapshot) >= enough; }));
    const std::string times = "console start time: %, start time: %, interval: 600.";
    expect_steps(mark,
                 {filled("Register new CDP schdule (local: L3, mirror: M3, " + times, past, past + 1200),
                  filled("Register new CDP schdule (local: L4, mirror: M4, " + times, past, far_future)});
}

TEST_F(schedule, SnapshotIsOnlyTakenOfWhatIsLevelWithItsMirror)
{
    const auto group = [](const char *name, const texts &members) {
        return group_element(name, 1, 1, 3600, members);
    };
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"},
                         {.src_guid = "L2", .dest_guid = "M2"},
                         {.src_guid = "L3", .dest_guid = "M3", .sync_state = "Sync On"},
                         {.src_guid = "L8", .dest_guid = "M8"}}); // a mirror that this host does not see
    world.once(disk_snapshot, "-1", {"{M2}"});
    world.once("kav_device_probe_all", "0", {"1"});
    world.once(group_snapshot, "-1", {"refused"});
    std::string schedules;
    for (const int number : {1, 2, 3, 9})
        schedules += schedule_element(number, 0, 1, 3600);
    start(group("all", {"L2", "L8", "L1"}) + group("behind", {"L1", "L3"}) + group("orphan", {"L1", "L9"}) +
              group("refused", {"L1"}) + group_element("off", 1, 0, 1, {"L1"}),
          schedules);
    for (const char *error : {"Disk L3 is not synchronized yet, snapshort creation canceled.",
                              "Unable to find backup relationship of disk L9, snapshot creation canceled.",
                              "CDP Schedule: Failed to create snapshot for group refused.",
                              "Snapshot creation failed, source disk is not synchronized yet, abort.",
                              "Unable to find backup relationship, snapshot creation canceled.",
                              "CDP Schedule: Failed to create snapshot for {M2}."})
        log.expect(LOG_ERR, error);
    expect_steps(0, {"CDP Schedule: Group all found.", "CDP Schedule: Snapshot is complete successfully."});
    expect_steps(0, {"CDP Schedule: Creating snapshot for mirror :{M1}.", "Disk status check finished."});
    std::this_thread::sleep_for(3s); // nothing is tried again before its hour has passed
    texts calls = world.calls(disk_snapshot);
    for (const std::string &call : world.calls(group_snapshot))
        calls.push_back(call);
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (texts{"kav_call_disk_markcdp {M1}", "kav_call_disk_markcdp {M2}",
                            "kav_call_grp_markcdp all {M2}:1:/dev/m2 {M1}:1:/dev/m1",
                            "kav_call_grp_markcdp refused {M1}:1:/dev/m1"}));
}
