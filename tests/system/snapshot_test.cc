// Snapshots on demand and the volumes that are restored from them; the schedules of snapshots as the local
// agent reads, sets and removes them.
#include "tests/system/adopted_test.h"

namespace {
constexpr uint32_t create_snapshot = 21, snap_restore = 23, kav_create_cdp = 30000,
                   kav_set_cdp_schedule = 30001, kav_get_cdp_schedule = 30002, kav_del_cdp_schedule = 30003,
                   kav_get_group = 30005, local_list = 30010;

std::string volumes(const texts &guids)
{
    std::string list;
    for (const std::string &guid : guids)
        list += filled("<Snap SnapVolGUID='kav_{%}'/>", guid);
    return "<Tessaron>" + list + "<Other/></Tessaron>";
}

class snapshot : public adopted_test {
protected:
    // Of a disk, or of a group when TYPE is 1.
    void expect(int status, uint32_t command, const std::string &name, int type, const std::string &source,
                const std::string &trace, const std::string &content = "")
    {
        constexpr char document[] = "<Tessaron><Snap SourceType='%' Source='%' IsCluster='0'/></Tessaron>";
        expect_trace(status, command, filled(document, type, type == 1 ? source : "kav_{" + source + "}"),
                     "Recv cmd: " + name + '|' + trace, content);
    }
};
using agent_schedule = snapshot;
} // namespace

TEST_F(snapshot, IsOnlyTakenOfWhatIsLevelWithItsMirror)
{
    const std::string ready = "Disk status check finished.|",
                      done = "Group snapshot creation is completed successfully.|";
    const std::string behind = "3 Snapshot creation failed, source disk is not synchronized yet.";
    const struct {
        int type;
        const char *source;
        int status; // for the manager: the agent only hears that it failed
        std::string trace, call;
    } cases[] = {
        {0, "L1", 0, ready + "Single disk snapshot creation is completed successfully.|",
         "kav_call_disk_markcdp {M1}"},
        {0, "L2", 10021, ready + "3 Failed to create snapshot for disk L2.", "kav_call_disk_markcdp {M2}"},
        {0, "L3", 10023, behind, ""},
        {0, "L4", 10023, behind, ""}, // because of L7, which has the same mirror
        {0, "L9", 1, "3 Failed to get mirror guid of L9.", ""},
        {1, "nobody", 0, done, ""},
        {1, "all", 0, "Found group all.|" + done, "kav_call_grp_markcdp all {M2}:1:/dev/m2 {M1}:1:/dev/m1"},
        {1, "empty", 0, "Found group empty.|" + done, "kav_call_grp_markcdp empty"},
        {1, "behind", 10023,
         "Found group behind.|3 Disk L3 is not synchronized yet, snapshort creation canceled.", ""},
        {1, "orphan", 10024,
         "Found group orphan.|3 Unable to find backup relationship of disk L9, snapshot creation canceled.",
         ""},
        {1, "refused", 10021, "Found group refused.|3 Failed to create snapshot for group: refused.",
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
    texts wanted, made = world.calls();
    const size_t before = made.size();
    for (const auto &[command, name] :
         {std::pair(create_snapshot, "CREATE_SNAPSHOT"), std::pair(kav_create_cdp, "KAV_CREATE_CDP")}) {
        for (const auto &one : cases) {
            const std::string begin =
                one.type ? "Creating snapshot for group: %.|" : "Creating snapshot for single disk: %.|";
            expect(command == create_snapshot ? one.status : one.status != 0, command, name, one.type,
                   one.source,
                   filled(begin, one.source) + one.trace +
                       (one.status == 0 ? filled("Complete work: %", name) : ""));
            if (!one.call.empty())
                wanted.push_back(one.call);
        }
    }
    made = world.calls();
    made.erase(made.begin(), made.begin() + static_cast<ptrdiff_t>(before));
    std::erase_if(made, [](const std::string &call) { return !call.starts_with("kav_call_"); });
    EXPECT_EQ(made, wanted);
}

TEST_F(snapshot, RestoredVolumesAreWaitedForUntilTheLastHasCome)
{
    const std::string end = "All the specified volumes are correctly restored!|7 Restore snapshot done";
    const scripted_disk last = disks.back(); // M5
    disks.pop_back();
    world.disks(disks);
    start("", "", {"-d"});
    const auto begin = std::chrono::steady_clock::now();
    expect_trace(0, snap_restore, volumes({}), "Recv cmd: SNAP_RESTORE|" + end);
    const auto at_once = std::chrono::steady_clock::now();
    EXPECT_LT(at_once - begin, 1s);
    std::thread platform([&] {
        log.expect(LOG_INFO, "Volume L1 is online.");
        disks.push_back(last);
        world.disks(disks);
    });
    expect_trace(0, snap_restore, volumes({"M5", "L1"}),
                 R"(Recv cmd: SNAP_RESTORE|7 Extracted GUID: kav_\{M5\}|7 Extracted GUID: kav_\{L1\}|)"
                 "Volume L1 is online.|Volume M5 is online.|" +
                     end);
    const auto duration = std::chrono::steady_clock::now() - at_once;
    platform.join();
    EXPECT_GE(duration, 3s);
    EXPECT_LT(duration, 6s);
    EXPECT_EQ(world.calls("kavdisk_rescan_dev"), texts{});
}

TEST_F(snapshot, RestoredVolumesAreGivenFortySeconds)
{
    const scripted_disk last = disks.back(); // M5
    disks.pop_back();
    world.disks(disks);
    world.always("kavdisk_rescan_dev", "0");
    start();
    std::thread platform([&] {
        std::this_thread::sleep_for(35s); // between the last two looks
        disks.push_back(last);
        world.disks(disks);
    });
    std::thread in_time([] { expect_answer(0, snap_restore, volumes({"M5"})); });
    const auto begin = std::chrono::steady_clock::now();
    expect_answer(1, snap_restore, volumes({"L9", "L1", "M5", "L8"}));
    const auto duration = std::chrono::steady_clock::now() - begin;
    in_time.join();
    platform.join();
    EXPECT_GE(duration, 40s);
    EXPECT_LT(duration, 45s);
    EXPECT_EQ(world.calls("kavdisk_rescan_dev"), (texts{"kavdisk_rescan_dev 0", "kavdisk_rescan_dev 0"}));
    log.expect_sequence(LOG_ERR, {"Some of the specified volumes are not correctly restored!",
                                  "Volume L9 is not restored.", "Volume L8 is not restored."});
    for (const log_line &line : log.lines())
        EXPECT_NE(line.text, "All the specified volumes are correctly restored!");
}

TEST_F(agent_schedule, IsGivenToADiskThatHasNone)
{
    world.relationships({{.src_guid = "L2", .dest_guid = "M2"}});
    const auto request = [&](int type, const char *source) {
        return std::regex_replace(new_times(type, source, past, 600), std::regex("Backup"), "Snap");
    };
    const std::string times =
        filled(", console start time: %, start time: %, interval: 600.|", past, past + 1200);
    start();
    expect_trace(0, kav_set_cdp_schedule, request(0, "L2"),
                 filled("Recv cmd:KAV_SET_CDP_SCHEDULE|Received new schedule, console start time: %, "
                        "interval: 600|",
                        past) +
                     "Updating CDP schedule for disk L2.|Looking for disk L2 in existing schedule list.|"
                     "Failed to find disk L2 in existing schedule list.|Looking for disk L2 in backup list.|"
                     "New schedule for disk L2" +
                     times + "Config fie is updated for disk L2.|" +
                     "Register new CDP schdule (local: L2, mirror: M2" + times +
                     "Looking for old CDP schedule.|New CDP schedule registered.|Background-running CDP "
                     "schedule for disk L2 is registered.|Complete work: SET_CDP_SCHEDULE.");
    expect_saved("", schedule_element(2, past, past + 1200, 600));
    expect_answer(1, kav_set_cdp_schedule, request(1, "nobody"));
}

TEST_F(agent_schedule, IsReadFromTheRecordOrTheRelationship)
{
    const auto expect_times = [&](int type, const char *name, const std::string &trace, uint64_t start,
                                  unsigned interval) {
        const std::string content =
            filled(R"(<Tessaron><Schedule StartTime="%" IntervalSeconds="%"/></Tessaron>)", start, interval);
        expect(0, kav_get_cdp_schedule, "KAV_GET_CDP_SCHEDULE", type, name,
               trace + filled("Schedule for % %,console start time:%,interval:%.|<?xml version=\"1.0\" "
                              "encoding=\"utf-8\"?>\n%|Complete work: KAV_GET_CDP_SCHEDULE",
                              type ? "group" : "disk", name, start, interval, content),
               content);
    };
    const auto searched = [](const char *disk) {
        return filled("Get CDP schedule for Single disk %.|Failed to find disk % in existing schedule list.|"
                      "Looking for disk % in backup list.|",
                      disk, disk, disk);
    };
    world.relationships({{.src_guid = "L3", .dest_guid = "M9"}, {.src_guid = "L2", .dest_guid = "M2"}});
    start(group_element("g", past, far_future, 60, {}),
          schedule_element(1, past, far_future, 60) + schedule_element(9, past, far_future, 600));
    expect_times(1, "g", "Get CDP schedule for group g.|", past, 60);
    expect_times(0, "L1", "Get CDP schedule for Single disk L1.|", past, 60);
    expect_times(0, "L3", searched("L3"), past, 600); // from the schedule of its mirror
    expect_times(0, "L2", searched("L2"), 0, 0);
    expect(1, kav_get_cdp_schedule, "KAV_GET_CDP_SCHEDULE", 0, "L4",
           searched("L4") + "Failed to find disk L4 in backup list.");
    expect(1, kav_get_cdp_schedule, "KAV_GET_CDP_SCHEDULE", 1, "nobody",
           "Get CDP schedule for group nobody.|3 Failed to find group nobody in existing gropu list.");
}

TEST_F(agent_schedule, IsRemovedAndAnUnknownDiskLeavesTheRecordLocked)
{
    const auto expect_removal = [&](int status, int type, const char *name, const std::string &trace) {
        expect(status, kav_del_cdp_schedule, "KAV_DEL_CDP_SCHEDULE", type, name,
               trace + (status == 0 ? "Complete work: KAV_DEL_CDP_SCHEDULE." : ""));
    };
    const std::string twice = group_element("g", past, far_future, 60, {});
    const std::string kept =
        schedule_element(2, past, far_future, 60) + schedule_element(1, past, far_future, 60);
    start(twice + group_element("half", past, past, 0, {}) + twice,
          schedule_element(1, past, far_future, 600) + kept);
    expect_removal(1, 1, "nobody",
                   "Delete CDP schedule for group nobody.|3 Failed to found CDP schedule for group nobody.|"
                   "Complete cmd KAV_DEL_CDP_SCHEDULE");
    expect_removal(0, 1, "g",
                   "Delete CDP schedule for group g.|Found CDP schedule for group g.|"
                   "Background running CDP schedule for group g is removed.|");
    expect_removal(0, 1, "half", "Delete CDP schedule for group half.|Found CDP schedule for group half.|");
    expect_removal(0, 0, "L1",
                   "Looking for CDP schedule for disk L1.|Found CDP schedule for disk L1.|"
                   "Background-running CDP Schedule for disk L1 is removed.|");
    const std::string groups = group_element("g", 0, 0, 0, {}) + group_element("half", 0, 0, 0, {}) + twice;
    expect_saved(groups, kept);
    expect_removal(1, 0, "L9",
                   "Looking for CDP schedule for disk L9.|Failed to find disk L9 in backup list.");

    const auto answers = [](uint32_t command) {
        const auto answer = ask(command);
        return answer && answer->head.ret == 0;
    };
    EXPECT_TRUE(is_serving() && answers(local_list));
    const peer waiting = connect_unix();
    EXPECT_TRUE(waiting.send(frame(request_head(kav_get_group))));
    const auto nothing = waiting.receive(2s);
    EXPECT_TRUE(nothing.bytes.empty() && !nothing.closed);
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    qelcd::wait_for_new_worker(worker);
    EXPECT_TRUE(answers(kav_get_group));
    expect_saved(groups, kept);
}

TEST_F(agent_schedule, NothingIsDoneWithoutAdoptionNorForWhatCannotBeRead)
{
    const auto refused = [](uint32_t command, const std::string &received, const std::string &more,
                            const char *request, const std::string &errors) {
        return refusal{command, received + more, 4, request, received + '|' + errors};
    };
    const std::string not_adopted = "|3 Error: client is not protected by a server.";
    const std::string no_source = "3 Failed to retrieve property Source from Snap node.|";
    const std::string unreadable = "Failed to parse snapshot creation request.";
    constexpr char without_source[] = "<Tessaron><Snap SourceType='0' IsCluster='0'/></Tessaron>";
    std::vector<refusal> cases = {
        refused(create_snapshot, "Recv cmd: CREATE_SNAPSHOT", not_adopted, "<Tessaron/>",
                "3 Failed to retrieve node Snap from XML request.|3 " + unreadable),
        refused(kav_create_cdp, "Recv cmd: KAV_CREATE_CDP", not_adopted, without_source,
                no_source + "3 " + unreadable),
        refused(snap_restore, "Recv cmd: SNAP_RESTORE", "", "<",
                "3 Failed to parse xml document|3 Failed to parse XML request for snapshot restoration."),
        refused(kav_get_cdp_schedule, "Recv cmd: KAV_GET_CDP_SCHEDULE", not_adopted, without_source,
                no_source + "3 '" + unreadable),
        refused(kav_del_cdp_schedule, "Recv cmd: KAV_DEL_CDP_SCHEDULE", not_adopted, "<Tessaron/>",
                "3 Failed to retrieve node Snap.|3 '" + unreadable)};
    for (const auto &[request, error] :
         {std::pair("<", "Failed to parse XML doc."),
          std::pair("<Snap/>", "Invalid XML format, unexpected root element."),
          std::pair("<Tessaron><Backup/></Tessaron>", "Failed to retrieve node Backup."),
          std::pair("<Tessaron><Snap/><Schedule/></Tessaron>", "Failed to retrieve node Schedule."),
          std::pair("<Tessaron><Snap Source='g'><Schedule/></Snap></Tessaron>",
                    "Failed to retrieve property SourceType of node Backup."),
          std::pair("<Tessaron><Snap SourceType='0'><Schedule/></Snap></Tessaron>",
                    "Failed to retrieve property Source of node Backup.")})
        cases.push_back(refused(kav_set_cdp_schedule, "Recv cmd:KAV_SET_CDP_SCHEDULE", not_adopted, request,
                                std::string("3 ") + error));
    expect_refusals(cases);
}
