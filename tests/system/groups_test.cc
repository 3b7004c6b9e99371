// Consistency groups, as the manager and as the local agent ask for them.
#include "tests/system/adopted_test.h"

#include <set>

namespace {
std::string leaving(const std::string &group, const std::string &disk)
{
    return in_root(filled(R"(<RemBGDisk BGName="%" SrcGUID="%"/>)", group, disk));
}

std::string deletion(const std::string &group)
{
    return in_root(filled(R"(<BGDelete BGName="%" IsCluster="0"/>)", group));
}

class groups : public adopted_test {};
} // namespace

TEST_F(groups, GroupIsCreatedUnderAFreeNameAndDeleted)
{
    const std::string old = group_element("old", past, far_future, 60, {"L3"});
    const std::string both = old + group_element("new", 0, 0, 0, {"L1", "L9"});
    const std::string own = schedule_element(1, past, far_future, 60);
    const std::string in_use = "Failed to create group, the group name already in use.";
    const texts members = {"L1", "L9"};
    const struct {
        uint32_t create;
        std::string addition, second;
        int refused;
        uint32_t remove;
        std::string removal, unknown;
    } cases[] = {
        {command::bg_create, group_document("new", members), group_document("old", {}), 1,
         command::del_backup_grp, deletion("new"), ""},
        {command::kav_create_group, agent_group_document("new", members), agent_group_document("old", {}),
         10029, command::kav_delete_group, agent_group_document("new", {}),
         "Failed to found group new in group list."},
    };
    start(old, own);
    for (const auto &one : cases) {
        expect_answer(0, one.create, one.addition);
        expect_saved(both, own);
        expect_answer(one.refused, one.create, one.second, in_use);
        expect_answer(0, command::kav_get_group, "<", "",
                      R"(<Tessaron><GroupList><Group name="old"><Disk guid="L3"/></Group><Group name="new">)"
                      R"(<Disk guid="L1"/><Disk guid="L9"/></Group></GroupList></Tessaron>)");
        expect_saved(both, own);
        expect_answer(0, one.remove, one.removal);
        expect_saved(old, own);
        expect_answer(1, one.remove, one.removal);
        if (!one.unknown.empty())
            log.expect(LOG_INFO, one.unknown);
        expect_saved(old, own);
    }
}

TEST_F(groups, DisksThatAreAddedGiveUpTheSchedulesThatRun)
{
    const auto runs = [&](int number) { return schedule_element(number, past, far_future, 60); };
    const std::string stopped = schedule_element(3, past, far_future, 0), last = runs(5) + runs(5);
    texts members = {"L3"};
    const auto g = [&] { // and another of that name
        return group_element("g", past, far_future, 60, members) + group_element("g", 0, 0, 0, {"L4"});
    };
    start(g(), runs(1) + runs(2) + stopped + runs(2) + runs(4) + last);
    const struct {
        uint32_t code;
        std::string (*document)(const std::string &, const texts &);
        const char *first;
        std::string left;
        const char *second;
        std::string left_then;
    } cases[] = {
        {command::add_disk_to_grp, group_document, "L1", runs(2) + stopped + runs(2) + runs(4) + last, "L2",
         stopped + runs(4) + last},
        {command::kav_add_member, agent_group_document, "L4", stopped + last, "L5", stopped},
    };
    for (const auto &one : cases) {
        expect_answer(1, one.code, one.document("nobody", {one.first}),
                      "Unable to found the specified group, abort.");
        expect_saved(g(), one.left);
        expect_answer(0, one.code, one.document("g", {one.second, "L3"}));
        members.insert(members.end(), {one.second, "L3"});
        expect_saved(g(), one.left_then);
    }
}

TEST_F(groups, DiskThatLeavesGoesOnWithTheTimesOfTheGroup)
{
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"}, {.src_guid = "L2", .dest_guid = "M2"}});
    texts first = {"L1", "L5", "L1"}, second = {"L2"};
    std::string schedules;
    const auto expect_removal = [&](int status, const char *group, const char *disk) {
        expect_answer(status, command::rem_disk_from_bg, leaving(group, disk),
                      status == 0 ? "" : "Cannot found the specified disk to be removed.");
        expect_saved(group_element("g", past, far_future, 60, first) + group_element("g", 0, 0, 0, second),
                     schedules);
    };
    const std::string by_last = schedule_element(2, 0, 0, 0); // of the two groups
    start(group_element("g", past, far_future, 60, first) + group_element("g", 0, 0, 0, second));
    expect_removal(1, "nobody", "L1");
    first = {"L5", "L1"};
    schedules = schedule_element(1, past, far_future, 60);
    expect_removal(0, "g", "L1");
    first = {"L1"};
    expect_removal(0, "g", "L5"); // is not protected
    second = {};
    schedules += by_last;
    expect_removal(0, "g", "L2");
    schedules += by_last;
    expect_removal(1, "g", "L2"); // although it is no member any more
    log.expect(LOG_INFO, "CDP schedule of disk L2 has no interval, it is not run.");
}

TEST_F(groups, AgentTakesDisksOutOfEveryGroupOfThatName)
{
    const std::string other = group_element("h", 1, far_future, 60, {"L1"});
    start(group_element("g", 1, far_future, 60, {"L1", "L2", "L1"}) + other +
          group_element("g", 0, 0, 0, {"L3", "L2"}));
    const std::string left =
        group_element("g", 1, far_future, 60, {}) + other + group_element("g", 0, 0, 0, {"L3"});
    expect_answer(0, command::kav_del_member, agent_group_document("g", {"L2", "L1"}));
    expect_saved(left, "");
    expect_answer(1, command::kav_del_member, agent_group_document("g", {"L1"}),
                  "Cannot found the specified disk to be removed.");
    expect_saved(left, "");
}

TEST_F(groups, SnapshotsFollowTheMembership)
{
    std::set<std::string> all;
    std::string several, schedules;
    std::vector<scripted_relationship> relationships;
    for (const std::string name : {"clock", "left", "deleted", "dropped", "cleared"}) {
        several += group_element(name.c_str(), 1, 1, 1, {"L5"});
        all.insert("kav_call_grp_markcdp " + name + " {M5}:1:/dev/m5");
    }
    for (const int number : {1, 2, 3, 4, 5}) {
        relationships.push_back({.src_guid = filled("L%", number), .dest_guid = filled("M%", number)});
        if (number < 4) {
            schedules += schedule_element(number, 1, 1, 1);
            all.insert(filled("kav_call_disk_markcdp {M%}", number));
        }
    }
    world.relationships(relationships);
    world.always("kav_call_grp_markcdp", "0");
    world.always("kav_call_disk_markcdp", "0");
    const auto since = [&](size_t mark) {
        const texts calls = world.calls();
        std::multiset<std::string> taken;
        for (size_t at = mark; at < calls.size(); ++at) {
            if (calls[at].starts_with("kav_call_"))
                taken.insert(calls[at]);
        }
        return taken;
    };
    const auto names = [](const std::multiset<std::string> &calls) {
        return std::set(calls.begin(), calls.end());
    };
    start(several, schedules);
    EXPECT_TRUE(eventually([&] { return names(since(0)) == all; }));
    expect_answer(0, command::del_backup_grp, deletion("deleted"));
    expect_answer(0, command::kav_delete_group, agent_group_document("dropped", {}));
    expect_answer(0, command::kav_del_cdp_schedule, snap_document(1, "cleared"));
    expect_answer(0, command::kav_del_cdp_schedule, snap_document(0, "kav_{L1}"));
    expect_answer(0, command::add_disk_to_grp, group_document("cleared", {"L2"}));
    expect_answer(0, command::kav_add_member, agent_group_document("cleared", {"L3"}));
    expect_answer(1, command::rem_disk_from_bg, leaving("left", "L4"),
                  "Cannot found the specified disk to be removed.");
    // The clock goes on: two ticks of it end what was under way, and three more show what still runs.
    const std::string tick = "kav_call_grp_markcdp clock {M5}:1:/dev/m5";
    const auto ticks = [&](size_t mark, size_t count) {
        return eventually([&] { return since(mark).count(tick) >= count; });
    };
    EXPECT_TRUE(ticks(world.calls().size(), 2));
    const size_t mark = world.calls().size();
    EXPECT_TRUE(ticks(mark, 3));
    EXPECT_EQ(names(since(mark)), (std::set<std::string>{"kav_call_disk_markcdp {M4}", tick,
                                                         "kav_call_grp_markcdp left {M5}:1:/dev/m5"}));
}
