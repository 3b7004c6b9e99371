// The schedules of snapshots: set, changed and removed, and run by the daemon on its own.
#include "tests/system/adopted_test.h"

#include <csignal>

namespace {
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
        expect_answer(0, command::set_cdp_schedule,
                      schedule_document("Backup", type, source, start, interval));
    }

    size_t count(const char *snapshot) const { return world.calls(snapshot).size(); }
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
    const auto expect = [&](int type, const char *source, uint64_t start, unsigned interval, int status,
                            const std::string &groups, const std::string &schedules) {
        expect_answer(status, command::set_cdp_schedule,
                      schedule_document("Backup", type, source, start, interval));
        expect_saved(groups, schedules);
    };
    start(none);
    expect(1, "nobody", past, 600, 1, none, "");
    expect(1, "g", past, 600, 0, set, "");
    expect(1, "g", 0, 0, 0, none, "");
    expect(1, "g", past, 0, 0, group(past, past, 0), "");
    expect(0, "L9", past, 600, 1, group(past, past, 0), ""); // is not protected
    expect(0, "L2", 0, 0, 1, group(past, past, 0), "");      // has none to be removed
    expect(1, "g", past, 600, 0, set, "");
    expect(2, "L2", past, 600, 0, set, second);
    expect(0, "L1", far_future, 60, 0, set, second + first);
    expect(0, "L2", 0, 60, 0, set, schedule_element(2, 0, 0, 60) + first);
    expect(0, "L2", past, 600, 0, set, second + first);
    expect(0, "L2", 0, 0, 0, set, first);
}

TEST_F(schedule, FiresEveryTwoSecondsWhateverElseIsAsked)
{
    start();
    set(0, "L1", past, 2);
    ASSERT_TRUE(eventually([&] { return count(disk_snapshot) == 1; }));
    const auto end = std::chrono::steady_clock::now() + 10s;
    for (unsigned at = 0; std::chrono::steady_clock::now() < end; ++at) {
        EXPECT_TRUE(ask(at % 2 ? command::local_list : command::get_client_info));
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_NEAR(static_cast<double>(count(disk_snapshot) - 1), 5, 1);
    EXPECT_EQ(world.calls(disk_snapshot).back(), "kav_call_disk_markcdp {M1}");
}

TEST_F(schedule, OnlyTheNewestOfADiskAndOfAGroupRuns)
{
    const auto times = [&](const char *call) { return std::ranges::count(world.calls(), call); };
    // Snapshots of the disk and of the group while that of L2, the clock, is taken so many times, after two
    // more that end what was under way.
    const auto taken = [&](long ticks) {
        const auto wait = [&](long count) {
            const long enough = times("kav_call_disk_markcdp {M2}") + count;
            EXPECT_TRUE(eventually([&] { return times("kav_call_disk_markcdp {M2}") >= enough; }));
        };
        const auto both = [&] {
            return std::pair(times("kav_call_disk_markcdp {M1}"),
                             times("kav_call_grp_markcdp g {M1}:1:/dev/m1"));
        };
        wait(2);
        const auto before = both();
        wait(ticks);
        const auto after = both();
        return std::pair<double, double>(after.first - before.first, after.second - before.second);
    };
    start(group_element("g", 1, 1, 1, {"L1"}), schedule_element(1, 1, 1, 1) + schedule_element(2, 1, 1, 1));
    set(0, "L1", past, 3);
    set(1, "g", far_future, 0); // lets the old one run on
    const auto [slower, unchanged] = taken(6);
    EXPECT_NEAR(slower, 2, 1);
    EXPECT_NEAR(unchanged, 6, 2);
    set(0, "L1", past, 1);
    set(1, "g", past, 3);
    const auto [faster, slower_group] = taken(6);
    EXPECT_NEAR(faster, 6, 2);
    EXPECT_NEAR(slower_group, 2, 1);
    set(0, "L1", 0, 0);
    set(1, "g", 0, 0);
    EXPECT_EQ(taken(4), std::pair(0.0, 0.0));
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
    log.expect_steps(LOG_INFO,
                     {filled("Register new CDP schdule (local: L3, mirror: M3, " + times, past, past + 1200),
                      filled("Register new CDP schdule (local: L4, mirror: M4, " + times, past, far_future)},
                     mark);
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
    EXPECT_TRUE(eventually([&] { return count(disk_snapshot) == 2 && count(group_snapshot) == 2; }));
    std::this_thread::sleep_for(2s); // nothing is tried again before its hour has passed
    texts calls = world.calls(disk_snapshot);
    for (const std::string &call : world.calls(group_snapshot))
        calls.push_back(call);
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (texts{"kav_call_disk_markcdp {M1}", "kav_call_disk_markcdp {M2}",
                            "kav_call_grp_markcdp all {M2}:1:/dev/m2 {M1}:1:/dev/m1",
                            "kav_call_grp_markcdp refused {M1}:1:/dev/m1"}));
}
