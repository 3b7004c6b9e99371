// Disks that are put under protection and taken out of it again, and the copying to their mirrors.
#include "tests/system/adopted_test.h"

namespace {
// Of disks and their mirrors; single disks are protected when GROUP is "".
std::string protect(const texts &disks, const char *group = "", uint64_t start = far_future,
                    unsigned interval = 60)
{
    std::string list;
    for (const std::string &number : disks)
        list += filled(R"(<Backup SrcGUID="L%" KavGUID="kav_{M%}"/>)", number, number);
    constexpr char document[] = R"(<BackupList>%</BackupList><Schedule StartTime="%" IntervalSeconds="%")"
                                R"( Source="%" SourceType="%"/>)";
    return in_root(filled(document, list, start, interval, group, *group ? 1 : 0));
}

std::string not_protected(const texts &disks)
{
    std::string list;
    for (const std::string &number : disks)
        list += filled(R"(<Device SrcGUID="L%" rtnStatus="1" DestGUID="M%"/>)", number, number);
    return in_root("<BackupList>" + list + "</BackupList>");
}

class protection : public adopted_test {
protected:
    // The changes of protection since the last call.
    texts changes()
    {
        texts recent;
        for (const texts calls = world.calls(); seen_ < calls.size(); ++seen_) {
            const std::string call =
                calls[seen_].substr(std::min(calls[seen_].size(), sizeof "tw_disk_" - 1));
            if (call.starts_with("protect ") || call.starts_with("unprotect "))
                recent.push_back(call);
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

// Volumes of a restored snapshot are waited for in the same way, meanwhile.
TEST_F(protection, OneDiskThatIsNotReadyStopsAllAndWhatIsMissingIsGivenFortySeconds)
{
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"}});
    world.always("kavdisk_rescan_dev", "1", {"0"});
    const scripted_disk last = disks.back(); // M5
    disks.resize(disks.size() - 2);
    world.disks(disks);
    const std::string groups = group_element("g", 0, 0, 0, {"L2"});
    start(groups);
    expect_answer(1, command::add_backup, protect({"2", "1"}),
                  "Failed to apply TW protection, disk L1 is already protected.", not_protected({"1"}));
    const auto volumes = [](const texts &guids) {
        return in_root(repeated(R"(<Snap SnapVolGUID="kav_{%}"/>)", guids));
    };
    const auto begin = std::chrono::steady_clock::now();
    const auto lasts_forty_seconds = [&] {
        return std::chrono::steady_clock::now() - begin > 40s &&
               std::chrono::steady_clock::now() - begin < 49s;
    };
    std::jthread platform([&] {
        std::this_thread::sleep_until(begin + 35s); // between the last two looks
        disks.push_back(last);
        world.disks(disks);
    });
    std::jthread in_time([&] { expect_answer(0, command::snap_restore, volumes({"M5"})); });
    std::jthread too_late([&] {
        expect_answer(1, command::snap_restore, volumes({"L9", "L1", "M5", "M4"}),
                      "Some of the specified volumes are not correctly restored!");
        EXPECT_TRUE(lasts_forty_seconds());
    });
    expect_answer(1, command::add_backup, protect({"9", "4", "2"}, "g"),
                  "Failed to apply TW protection, mirror M4 is still offline.", not_protected({"9", "4"}));
    EXPECT_TRUE(lasts_forty_seconds());
    for (std::jthread *one : {&platform, &in_time, &too_late})
        one->join();
    log.expect(LOG_ERR, "Failed to apply TW protection, disk L9 is offline.");
    log.expect(LOG_ERR, "Volume M4 is not restored.", log.expect(LOG_ERR, "Volume L9 is not restored."));
    EXPECT_EQ(world.calls("kavdisk_rescan_dev"), texts(3, "kavdisk_rescan_dev 0"));
    EXPECT_EQ(changes(), texts{});
    expect_saved(groups, "");
}

TEST_F(protection, MirrorThatComesWithTheRescanIsInTime)
{
    world.disks({disks[0]});
    world.once("kavdisk_rescan_dev", "1", {"0"});
    world.once("tw_disk_protect", "0", {"L1", "M1"});
    world.delay("kavdisk_rescan_dev", 1);
    world.delay("tw_disk_protect", 1);
    start();
    std::jthread platform([&] {
        EXPECT_TRUE(comes("kavdisk_rescan_dev"));
        world.disks(disks);
        EXPECT_TRUE(comes("tw_disk_protect"));
        world.relationships({{.src_guid = "L1", .dest_guid = "M1"}});
    });
    const auto begin = std::chrono::steady_clock::now();
    expect_answer(0, command::add_backup, protect({"1"}, "", 0));
    const auto duration = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(duration, 12s);
    EXPECT_LT(duration, 17s) << "it slept between the rescan and the look";
    platform.join();
    const std::string times = schedule_document("Backup", 0, "L1", far_future, 60);
    expect_answer(0, command::set_cdp_schedule, times); // knows the relationship
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
    const std::string failure = "Failed to apply twinvault protection (L2 -> M2).";
    expect_answer(1, command::add_backup, protect({"1", "2", "3"}), failure, not_protected({"2"}));
    EXPECT_EQ(changes(), applied);
    expect_answer(1, command::add_backup, protect({"1", "2", "3"}, "g"), failure, not_protected({"2"}));
    applied.insert(applied.end(), {"unprotect L1", "unprotect L3"});
    EXPECT_EQ(changes(), applied);
    log.expect(LOG_ERR, "Failed to remove TW protection for disk L1.");
    expect_saved(groups, "");
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
                            const std::string &schedules_then) {
        expect_answer(0, command::add_backup, request);
        expect_saved(groups_then, schedules_then);
    };
    expect(protect({"1"}, "", 0), none, "");
    expect(protect({"1"}, "g", past, 0), none, "");
    expect(protect({"1"}, "nobody"), none, "");
    expect(protect({"1", "2"}, "", past, 600), none, first);
    expect(protect({"1", "2"}, "g"), set, first);
    expect(protect({"2"}), set, first + second);
    EXPECT_EQ(changes().size(), 8U);

    world.always("kav_call_grp_markcdp", "0");
    world.relationships({{.src_guid = "L5", .dest_guid = "M5"}});
    expect_answer(0, command::add_backup, protect({"1"}, "g", past, 1));
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
    expect_answer(1, command::del_backup, list, "Local disk L9 doesn't exist.", "<Tessaron/>");
    EXPECT_EQ(changes(), (texts{"unprotect L1", "unprotect L4", "unprotect L2"}));
    expect_saved(groups(0, 1), kept);
    log.expect(LOG_WARNING, "Failed to remove twinvault protection for disk L4.");

    EXPECT_TRUE(comes(of_c, 2)); // by now no snapshot is under way that began before
    const std::pair ended(count(of_b), count(of_disk));
    EXPECT_TRUE(comes(of_c, 3));
    EXPECT_EQ(std::pair(count(of_b), count(of_disk)), ended);
    expect_answer(0, command::del_backup, backup_document({"L2"}));
    expect_saved(groups(0, 0), kept); // the next request looks at all groups again
}

TEST_F(protection, MirrorsThatFailAreListed)
{
    const std::string both = backup_document({"L1", "L2"});
    const char failed[] = R"(<Backup SrcGUID="L%" RtnStatus="%"/>)";
    world.once("tw_disk_resync", "-1", {"L2"});
    world.always("tw_disk_resync", "0");
    for (const char *guid : {"L1", "L2"})
        world.once("tw_disk_stop_sync", "-1", {guid});
    world.always("tw_disk_stop_sync", "0");
    start();
    expect_answer(1, command::init_mirror, both, "Failed to initialize mirror L2.",
                  in_root(R"(<BackupList Count="1">)" + filled(failed, 2, 10018) + "</BackupList>"));
    expect_answer(0, command::init_mirror, both);
    // Status 0 although every disk failed.
    expect_answer(0, command::cancel_init_mirror, both, "",
                  in_root(R"(<BackupList Count="2">)" + filled(failed, 1, 10019) + filled(failed, 2, 10019) +
                          "</BackupList>"));
    expect_answer(0, command::cancel_init_mirror, both);
    EXPECT_EQ(world.calls("tw_disk_resync"), (texts{"tw_disk_resync L1 0", "tw_disk_resync L2 0",
                                                    "tw_disk_resync L1 0", "tw_disk_resync L2 0"}));
    EXPECT_EQ(world.calls("tw_disk_stop_sync"), (texts{"tw_disk_stop_sync L1", "tw_disk_stop_sync L2",
                                                       "tw_disk_stop_sync L1", "tw_disk_stop_sync L2"}));
}
