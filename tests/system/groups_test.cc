// Consistency groups, as the manager and as the local agent ask for them.
#include "tests/system/adopted_test.h"

#include <set>

namespace {
// A command with its document: the name, then what there is for each disk.
struct command {
    uint32_t code;
    const char *element, *disk;
};
constexpr char managers[] = "<BGCreate BGName='%' IsCluster='0'>%</BGCreate>",
               managers_disk[] = "<SrcDisk SrcGUID='%'/>";
constexpr char agents[] = "<Group name='%' IsCluster='0'>%</Group>", agents_disk[] = "<Disk guid='%'/>";
constexpr command bg_create = {46, managers, managers_disk}, add_disk_to_grp = {69, managers, managers_disk};
constexpr command rem_disk_from_bg = {48, "<RemBGDisk BGName='%' SrcGUID='%'/>", "%"};
constexpr command del_backup_grp = {62, "<BGDelete BGName='%' IsCluster='0'>%</BGDelete>", ""};
constexpr command kav_create_group = {30004, agents, agents_disk},
                  kav_delete_group = {30006, agents, agents_disk};
constexpr command kav_add_member = {30007, agents, agents_disk},
                  kav_del_member = {30008, agents, agents_disk};
constexpr command kav_del_cdp_schedule = {30003, "<Snap Source='%' SourceType='%'/>", "%"};
constexpr uint32_t kav_get_group = 30005;

std::string request(const command &command, const char *name, const texts &on)
{
    std::string list;
    for (const std::string &disk : on)
        list += filled(command.disk, disk);
    return "<Tessaron>" + filled(command.element, name, list) + "</Tessaron>";
}

class groups : public adopted_test {
protected:
    void expect(int status, const command &command, const char *name, const texts &on,
                const std::string &trace)
    {
        expect_trace(status, command.code, request(command, name, on), trace);
    }
};
} // namespace

TEST_F(groups, GroupIsCreatedUnderAFreeNameAndDeleted)
{
    const std::string old = group_element("old", past, far_future, 60, {"L3"});
    const std::string both = old + group_element("new", 0, 0, 0, {"L1", "L9"});
    const std::string own = schedule_element(1, past, far_future, 60);
    const std::string added = "Group new is correctly added.|New configuration is saved to config file.|";
    const std::string in_use = "3 Failed to create group, the group name already in use.";
    start(old, own);
    const auto expect_life = [&](const command &create, const std::string &received,
                                 const std::string &created, int refused, const command &remove,
                                 const std::string &removing, const std::string &removed,
                                 const std::string &unknown) {
        expect(0, create, "new", {"L1", "L9"}, received + added + created);
        expect_saved(both, own);
        expect(refused, create, "old", {}, received + in_use);
        expect_trace(0, kav_get_group, "<", "Recv cmd: KAV_GET_GROUP|Complete work:KAV_GET_GROUP",
                     R"(<Tessaron><GroupList><Group name="old"><Disk guid="L3"/></Group><Group name="new">)"
                     R"(<Disk guid="L1"/><Disk guid="L9"/></Group></GroupList></Tessaron>)");
        expect_saved(both, own);
        expect(0, remove, "new", {}, removing + removed);
        expect_saved(old, own);
        expect(1, remove, "new", {}, removing + unknown);
        expect_saved(old, own);
    };
    expect_life(bg_create, "", "", 1, del_backup_grp, "Recv cmd: DEL_BACKUP_GRP|",
                "Cmd DEL_BACKUP_GRP complete successfully.", "");
    expect_life(kav_create_group, "Recv cmd: KAV_CREATE_GROUP.|", "Complete work : KAV_CREATE_GROUP.", 10029,
                kav_delete_group, "Recv cmd: KAV_DELETE_GROUP|", "Complete work :KAV_DELETE_GROUP.",
                "Failed to found group new in group list.");
}

TEST_F(groups, DisksThatAreAddedGiveUpTheSchedulesThatRun)
{
    const auto runs = [&](int number) { return schedule_element(number, past, far_future, 60); };
    const std::string stopped = schedule_element(3, past, far_future, 0);
    const std::string no_more = "Disk % has CDP schedule in config, remove it.|";
    texts members = {"L3"};
    const auto g = [&] { // and another of that name
        return group_element("g", past, far_future, 60, members) + group_element("g", 0, 0, 0, {"L4"});
    };
    start(g(), runs(1) + runs(2) + stopped + runs(2) + runs(4) + runs(5) + runs(5));
    const auto expect_addition = [&](const command &add, const char *received, const char *searching,
                                     const char *done, const char *first, const std::string &left,
                                     const char *second, const std::string &left_then) {
        const std::string begin = received +
                                  std::string("|Retrieved group %.|Searching for CDP schedule of ") +
                                  searching + " disks.|Disk % has CDP schedule, remove it.|" + no_more;
        expect(1, add, "nobody", {first},
               filled(begin, "nobody", first, first) + "Config updated.|Adding disks into group nobody|3 "
                                                       "Unable to found the specified group, abort.");
        expect_saved(g(), left);
        expect(0, add, "g", {second, "L3"},
               filled(begin + no_more +
                          "Config updated.|Adding disks into group g|Found requested group g|Adding disk % "
                          "into group g.|Adding disk L3 into group g.|%",
                      "g", second, second, second, second, done));
        members.insert(members.end(), {second, "L3"});
        expect_saved(g(), left_then);
    };
    const std::string last = runs(5) + runs(5);
    expect_addition(add_disk_to_grp, "Recv cmd ADD_DISK_TO_BG", "requested", "", "L1",
                    runs(2) + stopped + runs(2) + runs(4) + last, "L2", stopped + runs(4) + last);
    expect_addition(kav_add_member, "Recv cmd: KAV_ADD_MEMBER", "requeated", "Complete work: KAV_ADD_MEMBER.",
                    "L4", stopped + last, "L5", stopped);
}

TEST_F(groups, DiskThatLeavesGoesOnWithTheTimesOfTheGroup)
{
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"}, {.src_guid = "L2", .dest_guid = "M2"}});
    texts first = {"L1", "L5", "L1"}, second = {"L2"};
    const auto all = [&] {
        return group_element("g", past, far_future, 60, first) + group_element("g", 0, 0, 0, second);
    };
    std::string schedules;
    const auto taken = [&](int disk, uint64_t con, uint64_t next, unsigned interval) {
        schedules += schedule_element(disk, con, next, interval);
        return filled(R"(7 Source local L% ,mirror M% ,con_start_time % ,start_time % ,timeout %\.|)"
                      "7 Disk L% get Group sch success!|Register new CDP schdule (local: L%, mirror: M%, "
                      "console start "
                      "time: %, start time: %, interval: %.|",
                      disk, disk, static_cast<int>(con), static_cast<int>(next), interval, disk, disk, disk,
                      con, next, interval) +
               (interval ? "Looking for old CDP schedule.|New CDP schedule registered.|"
                         : filled("CDP schedule of disk L% has no interval, it is not run.|", disk));
    };
    const auto expect_removal = [&](int status, const char *name, const char *disk, std::string trace = "") {
        trace += status == 0 ? "" : "3 Cannot found the specified disk to be removed.";
        expect(status, rem_disk_from_bg, name, {disk},
               filled(R"(7 xml_to_bg_info:group\(%\) guid\(%\)|)", name, disk) + trace);
        expect_saved(all(), schedules);
    };
    const auto by_both = [&] {
        const std::string by_first = taken(2, past, far_future, 60);
        return by_first + taken(2, 0, 0, 0);
    };
    start(all(), "", {"-d"});
    expect_removal(1, "nobody", "L1");
    first = {"L5", "L1"};
    expect_removal(0, "g", "L1", taken(1, past, far_future, 60));
    first = {"L1"};
    expect_removal(0, "g", "L5"); // is not protected
    second = {};
    expect_removal(0, "g", "L2", by_both());
    expect_removal(1, "g", "L2", by_both()); // although it is no member any more
}

TEST_F(groups, AgentTakesDisksOutOfEveryGroupOfThatName)
{
    world.relationships({{.src_guid = "L1", .dest_guid = "M1"}});
    const std::string other = group_element("h", 1, far_future, 60, {"L1"});
    start(group_element("g", 1, far_future, 60, {"L1", "L2", "L1"}) + other +
          group_element("g", 0, 0, 0, {"L3", "L2"}));
    expect(0, kav_del_member, "g", {"L2", "L1"},
           "Recv cmd: KAV_DEL_MEMBER|Find requested group g|Disk L1 has removed|Disk L2 has removed|Disk L1 "
           "has removed|"
           "Find requested group g|Disk L2 has removed|Complete work: KAV_DEL_MEMBER.");
    const std::string left =
        group_element("g", 1, far_future, 60, {}) + other + group_element("g", 0, 0, 0, {"L3"});
    expect_saved(left, "");
    expect(1, kav_del_member, "g", {"L1"},
           "Recv cmd: KAV_DEL_MEMBER|Find requested group g|Find requested group g|"
           "3 Cannot found the specified disk to be removed.");
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
        std::set<std::string> taken;
        for (size_t at = mark; at < calls.size(); ++at) {
            if (calls[at].starts_with("kav_call_"))
                taken.insert(calls[at]);
        }
        return taken;
    };
    start(several, schedules);
    EXPECT_TRUE(eventually([&] { return since(0) == all; }));
    const auto ask_for = [&](int status, const command &command, const char *name, const texts &on) {
        expect_answer(status, command.code, request(command, name, on));
    };
    ask_for(0, del_backup_grp, "deleted", {});
    ask_for(0, kav_delete_group, "dropped", {});
    ask_for(0, kav_del_cdp_schedule, "cleared", {"1"});
    ask_for(0, kav_del_cdp_schedule, "kav_{L1}", {"0"});
    ask_for(0, add_disk_to_grp, "cleared", {"L2"});
    ask_for(0, kav_add_member, "cleared", {"L3"});
    ask_for(1, rem_disk_from_bg, "left", {"L4"});
    log.expect(LOG_ERR, "Cannot found the specified disk to be removed.");
    std::this_thread::sleep_for(2s); // for those that are under way
    const size_t mark = world.calls().size();
    std::this_thread::sleep_for(4s);
    EXPECT_EQ(since(mark), (std::set<std::string>{"kav_call_disk_markcdp {M4}",
                                                  "kav_call_grp_markcdp clock {M5}:1:/dev/m5",
                                                  "kav_call_grp_markcdp left {M5}:1:/dev/m5"}));
}

TEST_F(groups, NothingIsDoneWithoutAdoptionNorForWhatCannotBeRead)
{
    const auto from_agent = [](uint32_t code, const std::string &received) {
        return refusal{code, received + "|3 Error: client is not protected by a server.", 4, "<Tessaron/>",
                       received +
                           "|3 Failed to retrieve node Group.|3 Failed to parse the XML doc of request."};
    };
    expect_refusals(
        {{bg_create.code, "3 Failed to create group, client is not affected to a server.", 4, "<",
          "3 Failed to parse xml document|3 Failed to parse the XML doc of request."},
         {add_disk_to_grp.code, "Recv cmd ADD_DISK_TO_BG|3 Failed to modify group, client is not protected.",
          4, "<Tessaron/>",
          "Recv cmd ADD_DISK_TO_BG|3 Failed to retrieve node BGCreate.|3 Failed to retrieve the group of "
          "request."},
         {rem_disk_from_bg.code, "", 4, "<Other/>",
          "3 Error: xml's root node must be 'Tessaron'|3 Failed to parse request."},
         {del_backup_grp.code,
          "Recv cmd: DEL_BACKUP_GRP|3 Failed to process request, client is not protected.", 4,
          "<Tessaron><BGDelete/></Tessaron>",
          "Recv cmd: DEL_BACKUP_GRP|3 Missing property BGName.|3 Failed to retrive group to be deleted."},
         {kav_get_group, "Recv cmd: KAV_GET_GROUP|3 Error: client is not protected by a server.", 0, "<",
          "Recv cmd: KAV_GET_GROUP|GroupList is empty.|Complete work:KAV_GET_GROUP",
          "<Tessaron><GroupList/></Tessaron>"},
         from_agent(kav_create_group.code, "Recv cmd: KAV_CREATE_GROUP."),
         from_agent(kav_delete_group.code, "Recv cmd: KAV_DELETE_GROUP"),
         from_agent(kav_add_member.code, "Recv cmd: KAV_ADD_MEMBER"),
         from_agent(kav_del_member.code, "Recv cmd: KAV_DEL_MEMBER")});
}
