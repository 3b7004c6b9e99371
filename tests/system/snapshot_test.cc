// Snapshots on demand and the volumes that are restored from them; the schedules of snapshots as the local
// agent reads, sets and removes them.
#include "tests/system/adopted_test.h"

namespace {
class snapshot : public adopted_test {
protected:
    // Of a disk, or of a group when TYPE is 1.
    void expect(int status, uint32_t command, int type, const std::string &source,
                const std::string &error = "", const std::string &content = "")
    {
        expect_answer(status, command, snap_document(type, type == 1 ? source : "kav_{" + source + "}"),
                      error, content);
    }
};
using agent_schedule = snapshot;
} // namespace

TEST_F(snapshot, IsOnlyTakenOfWhatIsLevelWithItsMirror)
{
    const struct {
        int type;
        const char *source;
        int status; // for the manager: the agent only hears that it failed
        const char *error, *call;
    } cases[] = {
        {0, "L1", 0, "", "kav_call_disk_markcdp {M1}"},
        {0, "L2", 10021, "Failed to create snapshot for disk L2.", "kav_call_disk_markcdp {M2}"},
        {0, "L3", 10023, "Snapshot creation failed, source disk is not synchronized yet.", ""},
        {0, "L4", 10023, "Snapshot creation failed, source disk is not synchronized yet.",
         ""}, // because of L7
        {0, "L9", 1, "Failed to get mirror guid of L9.", ""},
        {1, "nobody", 0, "", ""},
        {1, "all", 0, "", "kav_call_grp_markcdp all {M2}:1:/dev/m2 {M1}:1:/dev/m1"},
        {1, "empty", 0, "", "kav_call_grp_markcdp empty"},
        {1, "behind", 10023, "Disk L3 is not synchronized yet, snapshort creation canceled.", ""},
        {1, "orphan", 10024, "Unable to find backup relationship of disk L9, snapshot creation canceled.",
         ""},
        {1, "refused", 10021, "Failed to create snapshot for group: refused.",
         "kav_call_grp_markcdp refused {M1}:1:/dev/m1"},
    };
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"},
                         {.src_guid = "L2", .dest_guid = "M2"},
                         {.src_guid = "L3", .dest_guid = "M3", .sync_state = "Sync On"},
                         {.src_guid = "L4", .dest_guid = "M4"},
                         {.src_guid = "L7", .dest_guid = "M4", .sync_state = "Sync On"},
                         {.src_guid = "L6", .dest_guid = "M6"}}); // this host does not see M6
    world.always("kav_call_disk_markcdp", "-1", {"{M2}"});        // the first that fits counts
    world.always("kav_call_disk_markcdp", "0");
    world.always("kav_call_grp_markcdp", "-1", {"refused"});
    world.always("kav_call_grp_markcdp", "0");
    std::string groups;
    for (const auto &[name, members] :
         {std::pair("all", texts{"L2", "L6", "L1"}), std::pair("all", texts{"L3"}),
          std::pair("empty", texts{}), std::pair("behind", texts{"L1", "L3", "L9"}),
          std::pair("orphan", texts{"L1", "L9", "L3"}), std::pair("refused", texts{"L1"})})
        groups += group_element(name, 0, 0, 0, members);
    start(groups);
    texts wanted;
    for (const uint32_t command : {command::create_snapshot, command::kav_create_cdp}) {
        for (const auto &one : cases) {
            expect(command == command::create_snapshot ? one.status : one.status != 0, command, one.type,
                   one.source, one.error);
            if (*one.call)
                wanted.push_back(one.call);
        }
    }
    texts made = world.calls();
    std::erase_if(made, [](const std::string &call) { return !call.starts_with("kav_call_"); });
    EXPECT_EQ(made, wanted);
}

TEST_F(snapshot, RestoredVolumesAreWaitedForUntilTheLastHasCome)
{
    const auto volumes = [](const texts &guids) {
        return in_root(repeated("<Snap SnapVolGUID='kav_{%}'/>", guids) + "<Other/>");
    };
    const scripted_disk last = disks.back(); // M5
    disks.pop_back();
    world.disks(disks);
    start();
    const auto begin = std::chrono::steady_clock::now();
    expect_answer(0, command::snap_restore, volumes({}));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s) << "there is nothing to wait for";
    std::jthread platform([&] {
        log.expect(LOG_INFO, "Volume L1 is online.");
        disks.push_back(last);
        world.disks(disks);
    });
    expect_answer(0, command::snap_restore, volumes({"M5", "L1"}));
    log.expect(LOG_INFO, "Volume M5 is online.");
    EXPECT_EQ(world.calls("kavdisk_rescan_dev"), texts{}) << "it came before the rescan";
}

TEST_F(agent_schedule, IsGivenToADiskThatHasNone)
{
    world.relationships({{.src_guid = "L2", .dest_guid = "M2"}});
    start();
    expect_answer(0, command::kav_set_cdp_schedule, schedule_document("Snap", 0, "L2", past, 600));
    expect_saved("", schedule_element(2, past, past + 1200, 600));
    expect_answer(1, command::kav_set_cdp_schedule, schedule_document("Snap", 1, "nobody", past, 600));
}

TEST_F(agent_schedule, IsReadFromTheRecordOrTheRelationship)
{
    const auto expect_times = [&](int type, const char *name, uint64_t start, unsigned interval) {
        expect(0, command::kav_get_cdp_schedule, type, name, "",
               in_root(filled(R"(<Schedule StartTime="%" IntervalSeconds="%"/>)", start, interval)));
    };
    world.relationships({{.src_guid = "L3", .dest_guid = "M9"}, {.src_guid = "L2", .dest_guid = "M2"}});
    start(group_element("g", past, far_future, 60, {}),
          schedule_element(1, past, far_future, 60) + schedule_element(9, past, far_future, 600));
    expect_times(1, "g", past, 60);
    expect_times(0, "L1", past, 60);
    expect_times(0, "L3", past, 600); // from the schedule of its mirror
    expect_times(0, "L2", 0, 0);
    expect(1, command::kav_get_cdp_schedule, 0, "L4");
    expect(1, command::kav_get_cdp_schedule, 1, "nobody",
           "Failed to find group nobody in existing gropu list.");
}

TEST_F(agent_schedule, IsRemovedAndAnUnknownDiskLeavesTheRecordLocked)
{
    const auto expect_removal = [&](int status, int type, const char *name, const std::string &error = "") {
        expect(status, command::kav_del_cdp_schedule, type, name, error);
    };
    const std::string twice = group_element("g", past, far_future, 60, {});
    const std::string kept =
        schedule_element(2, past, far_future, 60) + schedule_element(1, past, far_future, 60);
    start(twice + group_element("half", past, past, 0, {}) + twice,
          schedule_element(1, past, far_future, 600) + kept);
    expect_removal(1, 1, "nobody", "Failed to found CDP schedule for group nobody.");
    expect_removal(0, 1, "g");
    expect_removal(0, 1, "half");
    expect_removal(0, 0, "L1");
    const std::string groups = group_element("g", 0, 0, 0, {}) + group_element("half", 0, 0, 0, {}) + twice;
    expect_saved(groups, kept);
    expect_removal(1, 0, "L9");

    EXPECT_TRUE(is_serving() && ask(command::local_list)->head.ret == 0);
    const peer waiting = connect_unix();
    EXPECT_TRUE(waiting.send(frame(request_head(command::kav_get_group))));
    const auto nothing = waiting.receive(1s);
    EXPECT_TRUE(nothing.bytes.empty() && !nothing.closed);
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    qelcd::wait_for_new_worker(worker);
    EXPECT_EQ(ask(command::kav_get_group)->head.ret, 0);
    expect_saved(groups, kept);
}
