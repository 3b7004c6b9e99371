// Disks that are put under protection and taken out of it again, and the copying to their mirrors.
#include "tests/system/adopted_test.h"

namespace {
constexpr uint32_t add_backup = 4, del_backup = 14, init_mirror = 16, cancel_init_mirror = 17;

using numbers = std::vector<int>; // of disks, and of their mirrors alike

// A document with one element for each disk, that has its number in the places of the percent signs.
std::string backup_list(const char *element, const numbers &disks, const std::string &attributes = "",
                        const std::string &more = "")
{
    std::string list;
    for (const int number : disks)
        list += std::regex_replace(element, std::regex("%"), std::to_string(number));
    return filled("<Tessaron><BackupList%>%</BackupList>%</Tessaron>", attributes, list, more);
}

// Single disks are protected when GROUP is "".
std::string protect(const numbers &disks, const char *group = "", uint64_t start = far_future,
                    unsigned interval = 60)
{
    constexpr char schedule[] = R"(<Schedule StartTime="%" IntervalSeconds="%" Source="%" SourceType="%"/>)";
    return backup_list(R"(<Backup SrcGUID="L%" KavGUID="kav_{M%}"/>)", disks, "",
                       filled(schedule, start, interval, group, *group ? 1 : 0));
}

std::string not_protected(const numbers &disks)
{
    return backup_list(R"(<Device SrcGUID="L%" rtnStatus="1" DestGUID="M%"/>)", disks);
}

class protection : public adopted_test {
protected:
    // The changes of protection since the last call.
    texts changes()
    {
        texts recent;
        for (const texts calls = world.calls(); seen_ < calls.size(); ++seen_) {
            if (std::regex_match(calls[seen_], std::regex("tw_disk_(un)?protect .*")))
                recent.push_back(calls[seen_].substr(sizeof "tw_disk_" - 1));
        }
        return recent;
    }

    long count(const std::string &start_of_call) const
    {
        const texts calls = world.calls();
        return std::count_if(calls.begin(), calls.end(),
                             [&](const std::string &call) { return call.starts_with(start_of_call); });
    }

    bool comes(const std::string &start_of_call, long more = 1) const
    {
        const long enough = count(start_of_call) + more;
        return eventually([&] { return count(start_of_call) >= enough; });
    }

private:
    size_t seen_ = 0;
};
} // namespace

TEST_F(protection, OneDiskThatIsNotReadyStopsAllAndAMirrorIsGivenFortySeconds)
{
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"}});
    world.once("kavdisk_rescan_dev", "1", {"0"});
    disks.pop_back(); // M5
    world.disks(disks);
    const std::string groups = group_element("g", 0, 0, 0, {"L2"});
    start(groups);
    expect_answer(1, add_backup, protect({2, 1}), not_protected({1}));
    const auto begin = std::chrono::steady_clock::now();
    expect_answer(1, add_backup, protect({9, 5, 2}, "g"), not_protected({9, 5}));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 41s);
    log.expect_sequence(LOG_ERR, {"Failed to apply TW protection, disk L1 is already protected.",
                                  "Failed to apply TW protection, disk L9 is offline.",
                                  "Failed to apply TW protection, mirror M5 is still offline."});
    expect_steps(
        0, {"Recv cmd: ADD_BACKUP", "Mirror M2 is finally online.", "Finished scanning all the disks.",
            "List containing failed backup relationships is not empty.", "Operation ADD_BACKUP failed."});
    EXPECT_EQ(changes(), texts{});
    expect_saved(groups, "");
}

TEST_F(protection, MirrorThatComesWithTheRescanIsInTime)
{
    world.disks({disks[0]});
    world.once("kavdisk_rescan_dev", "1", {"0"});
    world.delay("kavdisk_rescan_dev", 2);
    world.once("tw_disk_protect", "0", {"L1", "M1"});
    world.delay("tw_disk_protect", 2);
    start();
    std::thread platform([&] {
        EXPECT_TRUE(comes("kavdisk_rescan_dev"));
        world.disks(disks);
        EXPECT_TRUE(comes("tw_disk_protect"));
        world.relationships({{.src_guid = "L1", .dest_guid = "M1"}});
    });
    const auto begin = std::chrono::steady_clock::now();
    expect_answer(0, add_backup, protect({1}, "", 0));
    const auto duration = std::chrono::steady_clock::now() - begin;
    platform.join();
    EXPECT_GE(duration, 14s);
    EXPECT_LT(duration, 18s) << "it slept between the rescan and the look";
    expect_steps(0, {"Mirror M1 is finally online.", "Operation ADD_BACKUP successed."});
    expect_answer(0, set_cdp_schedule, new_times(0, "L1", far_future, 60)); // knows the relationship
}

TEST_F(protection, GroupIsRolledBackAndSingleDisksAreNot)
{
    const std::string groups = group_element("g", 0, 0, 0, {"L1", "L2", "L3"});
    world.always("tw_disk_protect", "-1", {"L2"}); // the first that fits counts
    world.always("tw_disk_protect", "0");
    world.once("tw_disk_unprotect", "-1", {"L1"});
    world.once("tw_disk_unprotect", "0", {"L3"});
    start(groups);
    texts applied = {"protect L1 M1", "protect L2 M2", "protect L3 M3"};
    expect_answer(1, add_backup, protect({1, 2, 3}), not_protected({2}));
    EXPECT_EQ(changes(), applied);

    const std::string failure = "Failed to apply twinvault protection (L2 -> M2).";
    const size_t mark = log.expect(LOG_ERR, failure);
    expect_answer(1, add_backup, protect({1, 2, 3}, "g"), not_protected({2}));
    applied.insert(applied.end(), {"unprotect L1", "unprotect L3"});
    EXPECT_EQ(changes(), applied);
    expect_saved(groups, "");
    expect_steps(mark, {failure, "Failed to remove TW protection for disk L1."}, LOG_ERR);
    expect_steps(mark, {"All the disks are ready for protection application.",
                        "Protection is applied successfully to local disk: L3.",
                        "Application of TW protection for group g has failed, rollback.",
                        "Removing TW protection for disk L3.", "Rollback complete."});
}

TEST_F(protection, ScheduleOfTheRequestGoesToTheGroupOrToTheLastDisk)
{
    const auto groups = [](uint64_t time, unsigned interval) {
        return group_element("g", time, time, interval, {"L5"}) + group_element("h", 0, 0, 0, {"L2"}) +
               group_element("g", time, time, interval, {});
    };
    const std::string none = groups(0, 0), set = groups(far_future, 60);
    const std::string first = schedule_element(2, past, past + 1200, 600);
    const std::string second = schedule_element(2, far_future, far_future, 60);
    world.always("tw_disk_protect", "0");
    start(none);
    const auto expect = [&](const std::string &request, const std::string &groups_then,
                            const std::string &schedules_then, const char *step) {
        const size_t mark = log.size();
        expect_answer(0, add_backup, request);
        expect_saved(groups_then, schedules_then);
        expect_steps(mark, {step, "Operation ADD_BACKUP successed."});
    };
    expect(protect({1}, "", 0), none, "", "Received Schedule information Console StartTime: 0, Interval: 60");
    expect(protect({1}, "g", past, 0), none, "", "The request doesn't specify any CDP schedule.");
    expect(protect({1}, "nobody"), none, "", "Apply CDP schedule for group.");
    expect(protect({1, 2}, "", past, 600), none, first, "Apply CDP schedule for single disk.");
    expect(protect({1, 2}, "g"), set, first, "Found group g, applying CDP schedule.");
    expect(protect({2}), set, first + second, "Remove old CDP schedule.");
    EXPECT_EQ(changes().size(), 8U);

    world.always("kav_call_grp_markcdp", "0");
    world.relationships({{.src_guid = "L5", .dest_guid = "M5"}});
    expect_answer(0, add_backup, protect({1}, "g", past, 1));
    EXPECT_TRUE(comes("kav_call_grp_markcdp g {M5}:1:/dev/m5"));
}

TEST_F(protection, ReleaseEndsTheSchedulesButNotOfTheGroupsThatAreNotLookedAt)
{
    const char of_disk[] = "kav_call_disk_", of_b[] = "kav_call_grp_markcdp b",
               of_c[] = "kav_call_grp_markcdp c";
    world.always("kav_call_disk_markcdp", "0");
    world.always("kav_call_grp_markcdp", "0");
    world.always("tw_disk_unprotect", "0");
    world.once("tw_disk_unprotect", "-1", {"L4"});
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"},
                         {.src_guid = "L2", .dest_guid = "M2"},
                         {.src_guid = "L4", .dest_guid = "M4"}});
    const auto groups = [](unsigned b, unsigned c) {
        return group_element("a", 1, far_future, 60, {"L3"}) + group_element("b", b, b, b, {"L4", "L1"}) +
               group_element("c", c, c, c, {"L2"});
    };
    const std::string kept = schedule_element(4, 1, far_future, 60);
    start(groups(1, 1), schedule_element(1, 0, 1, 1) + kept + schedule_element(1, 0, 2, 1));
    EXPECT_TRUE(comes(of_b) && comes(of_c) && comes(of_disk));

    const char list[] = R"(<Tessaron><BackupList><any SrcGUID="L1"/><Backup/><Backup SrcGUID="L4"/>)"
                        R"(<Backup SrcGUID="L9"/><Backup SrcGUID="L2"/></BackupList></Tessaron>)";
    expect_answer(1, del_backup, list, "<Tessaron/>");
    EXPECT_EQ(changes(), (texts{"unprotect L1", "unprotect L4", "unprotect L2"}));
    expect_saved(groups(0, 1), kept);
    expect_steps(0, {"Recv cmd: DEL_BACKUP", "Disk L1 is under twinvault protection."});
    log.expect_sequence(LOG_WARNING, {"Missing property SrcGUID, ignore !",
                                      "Failed to remove twinvault protection for disk L4."});
    log.expect(LOG_ERR, "Local disk L9 doesn't exist.");

    EXPECT_TRUE(comes(of_c, 2)); // by now no snapshot is under way that began before
    const std::pair ended(count(of_b), count(of_disk));
    EXPECT_TRUE(comes(of_c, 3));
    EXPECT_EQ(std::pair(count(of_b), count(of_disk)), ended);
    expect_answer(0, del_backup, backup_list(R"(<Backup SrcGUID="L%"/>)", {2}));
    expect_saved(groups(0, 0), kept); // the next request looks at all groups again
}

TEST_F(protection, NothingIsDoneWithoutAdoptionNorForWhatCannotBeRead)
{
    const std::tuple<uint32_t, int, const char *, texts> cases[] = {
        {add_backup,
         4,
         "<Tessaron>",
         {"Failed to parse xml document", "Failed to fetch backup info from xml"}},
        {del_backup, 1, "<Tessaron>", {"Failed to parse XML request."}},
        {del_backup, 1, "<Tessaron><x/><BackupList/></Tessaron>", {"Failed to retrieve backup list."}},
        {init_mirror, 4, "<Tessaron/>", {"Failed to retrieve node BackupList."}},
        {cancel_init_mirror, 4, "<", {"Failed to parse XML request.", "Failed to parse XML doc."}},
        {set_cdp_schedule, 1, "<", {"Failed to parse XML doc."}},
    };
    daemon.start();
    for (const auto &[command, status, request, errors] : cases)
        expect_answer(50, command, request);
    log.expect(LOG_ERR, "Failed to add backup relationships for unprotected client.");
    adopt();
    for (const auto &[command, status, request, errors] : cases) {
        const size_t mark = log.size();
        expect_answer(status, command, request);
        log.expect_sequence(LOG_ERR, errors, mark);
    }
}

TEST_F(protection, MirrorsThatFailAreListed)
{
    const std::string both = backup_list(R"(<Backup SrcGUID="L%"/>)", {1, 2});
    world.once("tw_disk_resync", "-1", {"L2"});
    world.always("tw_disk_resync", "0");
    for (const char *guid : {"L1", "L2"})
        world.once("tw_disk_stop_sync", "-1", {guid});
    world.always("tw_disk_stop_sync", "0");
    start();
    expect_answer(1, init_mirror, both,
                  backup_list(R"(<Backup SrcGUID="L%" RtnStatus="10018"/>)", {2}, R"( Count="1")"));
    log.expect(LOG_ERR, "Failed to initialize mirror L2.");
    expect_answer(0, init_mirror, both);
    expect_steps(0, {"Recv cmd: INIT_MIRROR", "Launching mirror initialization.",
                     "Some mirrors are not initialized correctly.",
                     "All mirrors are initialized successfully."});
    EXPECT_EQ(count("tw_disk_resync L1 0") + count("tw_disk_resync L2 0"), 4);
    // Status 0 although every disk failed.
    expect_answer(0, cancel_init_mirror, both,
                  backup_list(R"(<Backup SrcGUID="L%" RtnStatus="10019"/>)", {1, 2}, R"( Count="2")"));
    expect_answer(0, cancel_init_mirror, both);
    log.expect(LOG_INFO, "Recv cmd: CANCEL_INIT_MIRROR");
    EXPECT_EQ(count("tw_disk_stop_sync L1") + count("tw_disk_stop_sync L2"), 4);
}
