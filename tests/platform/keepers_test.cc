// Keepers of the embedded CDP agent: a mirror is marked only if one of them has kept it, however they behave.
#include "platform/include/kavagt.h"
#include "platform/linux/agent/limited_run.h"
#include "platform/linux/agent/retention.h"
#include "platform/linux/agent/snapshot_acts.h"
#include "platform/linux/agent/snapshot_list.h"
#include "tests/scripted/script.h"
#include "tests/support/captured_log.h"
#include "tests/support/eventually.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <regex>

namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
const std::string STATE = "/var/lib/kavcdpagt/", KEEPERS = "/etc/kavtessaron/keepers.d/",
                  CALLS = "/run/keeper-calls";

// Keeps each mirror as an empty file, and says so of all of them. CHANGE comes before what it does.
void write_keeper(const std::string &name, const std::string &change = "")
{
    write_file(KEEPERS + name,
               "#!/bin/sh\ncase $1 in probe | list | space) ;; *) echo $1 $QELCD_DEVICE >>" + CALLS +
                   " ;; esac" + "\n" + change +
                   "\ncase $1 in\n"
                   "probe) echo /run/kept-$QELCD_SNAPSHOT-$QELCD_GUID ;;\n"
                   "mark) : >$QELCD_PLACE ;;\n"
                   "attach) echo /dev/null ;;\n"
                   "space) cat /run/fill ;;\n"
                   "undo | remove) rm -f $QELCD_PLACE ;;\n"
                   "list) shift; s=; echo '['; for p; do [ ! -e $p ] || { echo $s'{\"place\":\"'$p'\","
                   "\"size\":5}'; s=,; }; done; echo ']' ;;\n"
                   "esac\n");
    fs::permissions(KEEPERS + name, fs::perms::owner_all);
}

int mark_both()
{
    Kavdevgrp group{{}, {&group.devices, &group.devices}, const_cast<char *>("my group")};
    Kavdev devices[] = {{.guid = "{1}"}, {.guid = "{2}"}};
    for (Kavdev &device : devices)
        kav_list_append(&group.devices, &device.link);
    return kav_call_grp_markcdp(&group);
}

// The result of the last mark, without what differs from one to the next.
std::string last_result()
{
    std::string all = read_file(STATE + "journal");
    all = all.substr(all.rfind('\n', all.size() - 2) + 1);
    return std::regex_replace(all, std::regex("\\S+Z group my%20group 1,2 |[-0-9]{10}T[-0-9]{8}Z-|\n"), "");
}

bool are_all_ok()
{
    const auto all = list_snapshots();
    return std::ranges::all_of(*all, [](const auto &one) { return one.state == snapshot_state::ok; });
}

class Keepers : public testing::Test {
protected:
    void SetUp() override
    {
        world.relationships(
            {{.dest_guid = "1", .dest_path = "/one"}, {.dest_guid = "2", .dest_path = "/two"}});
        fs::remove_all("/etc/kavtessaron/mark.d");
        fs::remove("/etc/kavtessaron/embedded.conf");
        fs::create_directories(KEEPERS);
        fs::create_symlink("/dev/null", KEEPERS + "reflink");
    }
    void TearDown() override
    {
        fs::remove_all(KEEPERS);
        fs::remove_all(STATE);
        fs::remove("/run/killed");
        fs::remove("/etc/kavtessaron/embedded.conf");
        fs::remove(CALLS);
        take_log();
    }
    script world;
};

TEST(LimitedRun, EndsWhateverTheProgramDoes)
{
    const struct {
        std::chrono::seconds limit;
        std::string commands, expected; // complaint, status, output, line of error
    } rows[] = {
        {60s, "echo out; echo why >&2; echo more >&2; exit 4", " 4 out\n why"},
        {1s, "sleep 100 & sleep 100", "killed, as it took too long -1  "},
        {60s, "while :; do echo endless; done", "killed, as it wrote too much -1 endless\ne "},
        {1s, "trap '' TERM; while :; do echo; done >&2", "killed, as it took too long -1  "},
        {60s, "kill -9 $$", "ended by signal 9 -1  "},
        {60s, "sleep 100 & echo left $! >/run/left; echo out", " 0 out\n "}, // it holds the output open
    };
    for (const auto &row : rows) {
        const auto start = std::chrono::steady_clock::now();
        const run_result got =
            run_limited({.words = {"/bin/sh", "-c", row.commands}}, {.time = row.limit, .output = 9});
        EXPECT_EQ(got.complaint + " " + std::to_string(got.exit_status) + " " + got.output + " " +
                      got.first_error_line,
                  row.expected);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 50s) << row.commands;
    }
    kill(std::stoi(read_file("/run/left").substr(5)), SIGKILL);
}

TEST_F(Keepers, KeepAllMirrorsOfAMarkOrNone)
{
    const std::string undone = "undo /two\nundo /one\n";
    const struct {
        std::string change, result, calls;
    } rows[] = {
        {"", "ok my_group", "mark /one\nmark /two\n"},
        {"[ $1 != probe ] || exit 3", "failed: nothing would keep 1 (/one): no keeper knows how", ""},
        {"[ $1 != probe ] || { echo boo >&2; exit 9; }",
         "failed: nothing would keep 1 (/one): keeper lvm, probe: exit status 9: boo", ""},
        {"[ $1 != probe ] || exit 0", "failed: nothing would keep 1 (/one): keeper lvm says no place", ""},
        {"[ $1$QELCD_GUID != mark2 ] || { echo full >&2; exit 1; }",
         "failed: keeper lvm, mark: exit status 1: full (2)", "mark /one\nmark /two\n" + undone},
        {"[ $1 != mark ] || exit 0", "failed: keeper lvm says that it kept 1, but has nothing at ",
         "mark /one\n" + undone},
        {"[ $1 != mark ] || yes", "failed: keeper lvm, mark: killed, as it wrote too much (1)",
         "mark /one\n" + undone},
        {"[ $1 != list ] || { echo '[{\"place\":7}'; exit; }",
         "failed: keeper lvm, list: what it says is no list", "mark /one\n" + undone},
    };
    for (const auto &row : rows) {
        fs::remove(CALLS);
        write_keeper("lvm", row.change); // in the place of the vendor's
        EXPECT_EQ(mark_both() == 0, row.result.starts_with("ok"));
        EXPECT_TRUE(last_result().starts_with(row.result)) << last_result();
        EXPECT_EQ(read_file(CALLS), row.calls) << row.result;
        EXPECT_EQ(list_snapshots()->size(), 1U) << "the first one";
    }
    write_file("/etc/kavtessaron/embedded.conf", "unkept = journal\n");
    write_keeper("lvm", "[ $1 != probe ] || exit 3");
    EXPECT_EQ(mark_both(), 0);
    EXPECT_EQ(last_result(), "ok");
}

TEST_F(Keepers, ListAttachAndRemoveWhatIsThere)
{
    write_keeper(
        "lvm", "[ $1 != list -o ! -e /run/attached ] || { echo '[{\"place\":\"'$2'\",\"device\":\"/dev/x\"},"
               "{\"place\":\"'$3'\"}]'; exit; }");
    ASSERT_EQ(mark_both(), 0) << take_log();
    const auto only = [] { return list_snapshots().value().at(0); };
    const std::string name = only().record.name;
    EXPECT_EQ(list_snapshots({.with_sizes = true}).value().at(0).size, 10U);
    EXPECT_EQ(only().state, snapshot_state::ok);
    std::string why;
    EXPECT_FALSE(attach_snapshot(name, &why));
    EXPECT_EQ(why, "keeper lvm, attach: it names no block device");
    write_file("/run/attached", "");
    EXPECT_EQ(only().state, snapshot_state::attached);
    EXPECT_FALSE(remove_snapshot(name, &why));
    EXPECT_EQ(why, "it is attached as /dev/x");
    fs::remove("/run/attached");
    fs::remove(only().record.members[1].place);
    EXPECT_EQ(only().state, snapshot_state::gone);
    EXPECT_TRUE(remove_snapshot(name, &why)) << why;
    EXPECT_TRUE(list_snapshots()->empty());
    EXPECT_FALSE(remove_snapshot(name, &why));
    EXPECT_EQ(read_file(CALLS), "mark /one\nmark /two\nattach /one\ndetach /one\nremove /one\nremove /two\n");
}

// A snapshot of MIRROR as an empty file, taken at that time.
void put_snapshot(const std::string &mirror, const std::string &time, const std::string &group = "")
{
    const std::string name = time + "-" + mirror, place = "/run/kept-" + name;
    write_file(place, "");
    ASSERT_TRUE(
        store_snapshot({name, time, group, "", true, {{mirror, "s" + mirror, "/x", "lvm", place, "512"}}}));
}

std::string names_left(const std::string &mirror)
{
    std::string names;
    const auto all = list_snapshots();
    for (const listed_snapshot &one : *all) {
        if (one.record.members.front().mirror == mirror)
            names += one.record.time.substr(5, 8) + " ";
    }
    return names;
}

TEST_F(Keepers, RemoveWhatNoRuleKeeps)
{
    write_keeper("lvm", "[ $1$QELCD_GUID != removestuck ] || exit 1");
    const char *const times[] = {"2030-12-30T10", "2030-12-31T10", "2030-12-31T11",
                                 "2031-01-01T00", "2031-01-01T01", "2031-01-05T23",
                                 "2031-01-06T00", "2031-01-06T01", "2031-01-06T02"};
    const struct {
        const char *mirror, *rule, *left;
    } rows[] = {
        {"all", "all", "12-30T10 12-31T10 12-31T11 01-01T00 01-01T01 01-05T23 01-06T00 01-06T01 01-06T02 "},
        {"last", "last 2", "01-06T01 01-06T02 "},
        {"hours", "hourly 2", "01-06T01 01-06T02 "},
        {"days", "daily 3", "01-01T00 01-05T23 01-06T00 01-06T02 "},
        {"weeks", "weekly 2", "12-30T10 01-06T00 01-06T02 "}, // 30 December and 6 January are Mondays
        {"months", "monthly 9, last 1", "12-30T10 01-01T00 01-06T02 "},
    };
    std::string settings;
    for (const auto &row : rows) {
        settings += "keep disk s" + std::string(row.mirror) + " = " + row.rule + "\n";
        for (const char *time : times)
            put_snapshot(row.mirror, time);
    }
    put_snapshot("stuck", times[0]), put_snapshot("stuck", times[1]);
    write_file("/etc/kavtessaron/embedded.conf", settings + "keep = last 1\n");
    const auto report = prune_snapshots([](const snapshot &) { return true; });
    for (const auto &row : rows)
        EXPECT_EQ(names_left(row.mirror), row.left) << row.rule;
    EXPECT_EQ(report.value().not_removed.size(), 1U);
    EXPECT_EQ(names_left("stuck"), "12-30T10 12-31T10 ");
    EXPECT_TRUE(are_all_ok()) << "what cannot be removed stays whole";
}

TEST_F(Keepers, MakeRoomOrRefuse)
{
    write_keeper("lvm", "[ $1 != remove ] || echo 94.9 >/run/fill");
    const struct {
        const char *settings, *fill, *result;
        size_t left;
    } rows[] = {
        {"", "94.9", "ok", 1},
        {"", "", "ok", 2},
        {"", "95.0", "failed: what keeps 1 is 95 % full, and fill_limit is 95", 2},
        {"fill_limit = 100", "100", "ok", 3},
        {"keep = last 1\nfill_limit = 95", "99", "ok", 1}, // before it takes one, and after that
        {"keep = last 1\nfill_limit = 90", "99", "failed: what keeps 1 is 99 % full, and fill_limit is 90",
         1},
    };
    for (const auto &row : rows) {
        write_file("/etc/kavtessaron/embedded.conf", row.settings);
        write_file("/run/fill", row.fill);
        mark_both();
        EXPECT_TRUE(last_result().starts_with(row.result)) << last_result();
        EXPECT_EQ(list_snapshots()->size(), row.left) << row.settings << " " << row.fill;
    }
}

// The keeper goes on when the process that asked it is killed; what it makes then must not stay.
TEST_F(Keepers, OfAMarkThatWasKilledLeaveNothing)
{
    write_keeper("lvm", "[ $1$QELCD_GUID != mark2 -o -e /run/killed ] || "
                        "{ : >/run/killed; kill -9 $PPID; sleep 1; }");
    const pid_t marker = fork();
    if (marker == 0)
        _exit(mark_both());
    ASSERT_EQ(waitpid(marker, nullptr, 0), marker);
    const listed_snapshot half = list_snapshots().value().at(0);
    EXPECT_EQ(half.state, snapshot_state::unfinished);
    fs::remove(CALLS);
    EXPECT_EQ(mark_both(), 0) << take_log();
    EXPECT_EQ(read_file(CALLS), "mark /one\nmark /two\n") << "it is at work still";
    EXPECT_TRUE(eventually([&] { return try_lock_snapshot(half.record.name).is_open(); }));
    fs::remove(CALLS);
    EXPECT_EQ(mark_both(), 0) << take_log();
    EXPECT_EQ(read_file(CALLS), "undo /two\nundo /one\nmark /one\nmark /two\n");
    for (const snapshot_member &member : half.record.members)
        EXPECT_FALSE(fs::exists(member.place));
    EXPECT_EQ(list_snapshots()->size(), 2U);
    EXPECT_TRUE(are_all_ok());
}
} // namespace
