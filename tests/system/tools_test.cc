// The command-line tools against the shipped daemon and against each other.
#include "platform/linux/state/progress.h"
#include "tests/system/tools_fixture.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {
using tools = with_tools<system_test>;

// The lines of a file, of which some begin with a time of day.
std::string without_times(const char *path)
{
    std::istringstream lines(read_file(path));
    std::string all;
    for (std::string line; std::getline(lines, line); all += line + "\n") {
        if (line.size() > 9 && line[2] == ':' && line[5] == ':')
            line.erase(0, line.find(' ', 9) + 1); // and its zone
    }
    return all;
}

} // namespace

TEST_F(tools, QelcPrintsStatusAndAnswerAndEndsWithWhatTheyMean)
{
    write_config({.guid = "G", .alias = "A", .manager_guid = "M"});
    world.always("kavdisk_rescan_dev", "0");
    daemon.start();
    const std::string tcp = "--host 127.0.0.1:" + std::to_string(client_port) + " ";
    const std::string document = std::string(xml_head) + "<Tessaron>";
    const auto none = [](const std::string &word, const std::string &near) {
        return "error: " + word + " could not be done: there is no such verb or command; did you mean " +
               near + "?\nhint: qelc --help lists the verbs, qelc --list the commands\n";
    };
    const std::string no_verb = "error: group could not be done: ",
                      its_verbs = "hint: qelc help group lists its verbs\n";
    const struct {
        std::string arguments;
        int status;
        std::string output;
    } cases[] = {
        {"57", 0, "status 0: success\n"},
        {tcp + "nop_command", 0, "status 0: success\n"},
        {"local_list", 0,
         "status 0: success\n" + document +
             "\n  <Client GUID=\"G\" Alias=\"A\"/>\n  <Manager GUID=\"M\" IPs=\"\"/>\n</Tessaron>\n"},
        {"--raw local_list", 0,
         document + "<Client GUID=\"G\" Alias=\"A\"/><Manager GUID=\"M\" IPs=\"\"/></Tessaron>\n"},
        {"mirrors --watch", 0, "no mirrors\n"},
        {"scan_client", 1, "status 52: a manager has already adopted this client\n"},
        {"--raw rescan_devices", 1, "qelc: status 1: failure\n"},
        {"mirors", 2, none("mirors", "mirrors")},
        {"help snapsot", 2, none("snapsot", "snapshot")},
        {"snapshto restore x", 2, none("snapshto", "snapshots restore")},
        {"group crate g", 2,
         no_verb + "crate is none of its verbs; did you mean group create?\n" + its_verbs},
        {"group lst --yes", 2, no_verb + "lst is none of its verbs; did you mean group list?\n" + its_verbs},
        {"group", 2, no_verb + "a verb is required\n" + its_verbs},
        {"57 >/dev/full", 1, "qelc: standard output: No space left on device\n"},
        {"mirrors >/dev/full", 1, "qelc: standard output: No space left on device\n"},
        {"--timeout 1 rescan_devices", 3, "qelc: /var/run/qelcd.sock: time-out: no answer within 1 s\n"},
        {"--host :1 57", 2, "qelc: :1: not ADDR[:PORT]\n"},
        {"--socket /nowhere 57", 3, "qelc: /nowhere: No such file or directory\n"},
        {"--host 127.0.0.1:1 57", 3, "qelc: 127.0.0.1:1: Connection refused\n"},
        {"0", 3, "qelc: /var/run/qelcd.sock: the connection ended without an answer\n"},
    };
    log.tolerate("Invalid cmd: 0");
    log.tolerate("Failed to connect to manager 'M'"); // by a heartbeat, if this takes that long
    world.delay("kavdisk_rescan_dev", 1.5, 2);
    for (const auto &one : cases)
        EXPECT_EQ(run("$BIN/qelc " + one.arguments), (outcome{one.status, one.output})) << one.arguments;
}

TEST_F(tools, BeforeTheAdoptionEveryVerbSaysWhoCanAdopt)
{
    daemon.start();
    log.tolerate("Error: client is not protected by a server.");
    for (const char *verb :
         {"disks", "mirrors --wait", "protect a=b --yes", "unprotect a", "snapshot --group g",
          "schedule get --disk a", "group list", "group delete g", "db delete --instance i"}) {
        const outcome end = run("$BIN/qelc " + std::string(verb));
        EXPECT_EQ(end.first, 5) << verb << end.second;
        EXPECT_NE(end.second.find("No manager has adopted this host\nhint: qelc init "), std::string::npos)
            << end.second;
    }
    EXPECT_EQ(run("$BIN/qelc kav_get_group").first, 5);
}

// They need no daemon; each answer is one for programs, too.
TEST_F(tools, VerbsOfTheHostItselfSayWhatIsWrong)
{
    write_file("/var/tmp/two", "<Tessaron><ClientPort>x</ClientPort></Tessaron>");
    write_file("/var/tmp/good", "<Tessaron><ClientPort>1</ClientPort><ServerPort>2</ServerPort></Tessaron>");
    const struct {
        const char *arguments;
        int status;
        const char *words;
    } cases[] = {
        {"snapshots", 0, R"("results":[])"},
        {"snapshots remove a b", 4, "a: there is no such snapshot; b: there is no such snapshot"},
        {"snapshots detach a --dry-run", 4, R"("snapshot":"a","status":"not-found")"},
        {"snapshots attach a", 4, "qelc snapshots shows those that there are"},
        {"snapshots mount a /", 4, "a: there is no such snapshot"},
        {"snapshots umount a", 4, "a: there is no such snapshot"},
        {"snapshots restore a --yes", 4, "a: there is no such snapshot"},
        {"snapshots prune", 0, R"("status":"done")"},
        {"snapshots prune --dry-run", 0, R"("status":"done")"},
        {"volumes", 0, R"("results":[])"},
        {"volume create --like none --in /var", 4, "none: there is no such disk"},
        {"volume delete v --yes", 4, "v: there is no such volume"},
        {"volume attach", 0, R"("results":[])"},
        {"check-config /var/tmp/good", 0, R"({"status":"remark","text":"/var/tmp/good: there is no ClientG)"},
        {"check-config /var/tmp/two", 1, "2 faults"},
        {"check-config /nowhere", 1, "/nowhere: No such file or directory; qelc init makes one"},
        {"wait-ready --seconds 1", 3, "time-out: no answer of qelcd within 1 s"},
        {"--host h volumes", 2, "this verb asks no daemon"},
    };
    std::string answers;
    for (const auto &[arguments, status, words] : cases) {
        const outcome end = run("$BIN/qelc --json " + std::string(arguments) + " 2>/dev/null");
        EXPECT_EQ(end.first, status) << arguments << end.second;
        EXPECT_NE(end.second.find(words), std::string::npos) << arguments << end.second;
        answers += end.second;
    }
    expect_valid(answers);
    EXPECT_EQ(run("$BIN/qelc volume delete v --yes"),
              (outcome{4, "error: volume delete v could not be done: v: there is no such volume\n"
                          "hint: qelc volumes shows the volumes\n"}));
}

TEST_F(tools, QelcBuildsBodiesFromOptions)
{
    const struct {
        std::string arguments;
        std::string body; // inside the root element
    } cases[] = {
        {"add_client --guid 'M&1' --ip 192.0.2.1 --ip 192.0.2.2",
         R"(<Server ID="M&amp;1" IPs="192.0.2.1 192.0.2.2"/>)"},
        {"del_client --client-guid C --guid S", R"(<Server ID="S"/><Client ID="C"/>)"},
        {"rename_client --alias '[a, \"b\"]'", R"(<Client Alias="[a, &quot;b&quot;]"/>)"},
        {"establish_channels --target-ip 192.0.2.2:3261 --initiator-ip 192.0.2.1 --target-iqn T "
         "--initiator-iqn I",
         R"(<Channel InitiatorIqn="I" TargetIqn="T"><Path InitiatorIP="192.0.2.1" TargetIP="192.0.2.2:3261"/>)"
         "</Channel>"},
        {"protect 'A&1=B' --host ignored",
         R"(<BackupList><Backup SrcGUID="A&amp;1" KavGUID="kav_{B}"/></BackupList>)"
         R"(<Schedule StartTime="0" IntervalSeconds="0" Source="A&amp;1" SourceType="0"/>)"},
        {"--socket /ignored protect --group g A=B C=D --start 1000 --every 600",
         R"(<BackupList><Backup SrcGUID="A" KavGUID="kav_{B}"/><Backup SrcGUID="C" KavGUID="kav_{D}"/>)"
         R"(</BackupList><Schedule StartTime="1000" IntervalSeconds="600" Source="g" SourceType="1"/>)"},
        {"schedule set --every 60 --start '2031-05-01 12:00:07' --disk A", // in summer
         R"(<Backup SourceType="0" Source="A"><Schedule StartTime="1935396007" IntervalSeconds="60"/></Backup>)"},
        {"schedule set --every 2h --start 2031-05-01T12:00:07+02:00 --disk A",
         R"(<Backup SourceType="0" Source="A"><Schedule StartTime="1935396007" IntervalSeconds="7200"/></Backup>)"},
        {"schedule set --every '1 d' --start 2031-05-01 --disk A",
         R"(<Backup SourceType="0" Source="A"><Schedule StartTime="1935352800" IntervalSeconds="86400"/></Backup>)"},
        {"schedule set --off --group g",
         R"(<Backup SourceType="1" Source="g"><Schedule StartTime="0" IntervalSeconds="0"/></Backup>)"},
        {"mirror A B", R"(<BackupList><Backup SrcGUID="A" KavGUID="kav_{B}"/></BackupList>)"
                       R"(<Schedule StartTime="0" IntervalSeconds="0" Source="A" SourceType="0"/></Tessaron>)"
                       "\n" +
                           std::string(xml_head) +
                           R"(<Tessaron><BackupList><Backup SrcGUID="A"/></BackupList>)"},
        {"snapshot --disk A", R"(<Snap SourceType="0" Source="kav_{A}" IsCluster="0"/>)"},
        {"restore-wait V W", R"(<Snap SnapVolGUID="kav_{V}"/><Snap SnapVolGUID="kav_{W}"/>)"},
        {"group create mirrors", R"(<BGCreate BGName="mirrors" IsCluster="0"/>)"}, // a verb's name
        {"group add g A B",
         R"(<BGCreate BGName="g" IsCluster="0"><SrcDisk SrcGUID="A"/><SrcDisk SrcGUID="B"/></BGCreate>)"},
        {"db set --user u --instance i --password-file /nowhere --oracle-home /o --archive-log",
         R"(<DBSet DBType="0" DBUser="u" DBPasswd="********" InstanceName="i" ArchiveLog="1" )"
         R"(OracleHome="/o" IsCluster="0"/>)"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(run("TZ=CET-1CEST,M3.5.0,M10.5.0/3 $BIN/qelc --print-body " + one.arguments),
                  (outcome{0, xml_head + ("<Tessaron>" + one.body + "</Tessaron>\n")}))
            << one.arguments;
    const std::string start = "$BIN/qelc --print-body schedule set --disk A --every 9 --start ";
    for (const char *day : {"", "tomorrow "}) // a time of day alone is the next one
        EXPECT_EQ(run("export TZ=UTC; now=$(date +%s) t=$(date -d '-2 min' +%H:%M) d='" + std::string(day) +
                      "'; at=$(date -d \"$d$t\" +%s); [ $at -gt $now ] || at=$((at + 86400)); " + start +
                      "\"$d$t\" | grep -q StartTime=.$at && echo $t as expected | cut -c 7-"),
                  (outcome{0, "as expected\n"}));
    EXPECT_EQ(run("echo '<x' | $BIN/qelc --print-body -f - add_client"), (outcome{0, "<x\n"}));
    EXPECT_EQ(run("$BIN/qelc --print-body scan_client"), (outcome{0, ""}));
}

TEST_F(tools, QelcNamesTheOptionThatDoesNotFit)
{
    const struct {
        std::string arguments;
        std::string complaint;
    } cases[] = {
        {"add_client --guid M --ip host", "add_client: --ip: host is not an IPv4 address"},
        {"--alias A rename_client", "rename_client: --alias belongs after rename_client"},
        {"protect A=B C", "protect: PAIR: C is not SRC=MIRROR"},
        {"protect A=B C=D --start 1 --every 5", "protect: --every goes with a single disk, or with --group"},
        {"schedule set --disk A --every 5 --start '2031-02-29 12:00'",
         "schedule set: --start: 2031-02-29 12:00 is not a time: now, HH:MM, today or tomorrow HH:MM, "
         "YYYY-MM-DD "
         "[HH:MM[:SS] [zone]], or seconds since the epoch"},
        {"schedule set --disk A --every 5000000000", "schedule set: --every: 5000000000 is not an interval: "
                                                     "a number of seconds, or a number with s, min, h, d "
                                                     "or w"},
        {"--raw unprotect A", "unprotect: --raw does not go with a verb that changes something"},
        {"--print-body mirror A --in /srv",
         "mirror: --print-body does not go with --in: the volume has no GUID before it is made"},
        {"snapshots prun", "snapshots: prun does not belong to this verb; did you mean snapshots prune?"},
        {"snapshot restor x",
         "snapshot: restor does not belong to this verb; did you mean snapshots restore?"},
        {"volumes delte v", "volumes: delte does not belong to this verb; did you mean volume delete?"},
        {"help snapshots prun",
         "snapshots: prun does not belong to this verb; did you mean snapshots prune?"},
        {"status --heartbeat", "status: --heartbeat needs a value: INTERVAL[,INTERVAL]"},
        {"mirrors L1", "mirrors: disks and --timeout go with --wait or --watch"},
        {"snapshot --disk A --group g", "snapshot: --disk excludes --group"},
    };
    for (const auto &[arguments, complaint] : cases) {
        const std::string verb = complaint.substr(0, complaint.find(':'));
        const std::string error = "error: " + verb + " could not be done" + complaint.substr(verb.size()) +
                                  "\nhint: qelc help " + verb + " shows its options\n";
        const bool is_command = verb.ends_with("_client");
        EXPECT_EQ(run("$BIN/qelc " + arguments),
                  (outcome{2, is_command ? "qelc: " + complaint + "\n" : error}));
    }
    EXPECT_EQ(run("$BIN/qelc help schedule set"), run("$BIN/qelc schedule set --help"));
}

// What must fail is not even sent.
TEST_F(mirror_tools, AVerbLooksBeforeItAsks)
{
    world.relationships({mirror(2, "UnSync", 0)});
    start(group_element("g", 0, 0, 0, {"abc1", "ABD2", "L1"}) + group_element("h", 0, 0, 0, {}), "");
    const struct {
        std::string arguments;
        int status;
        std::string reason, hint; // what they begin with
    } cases[] = {
        {"protect sda1=m1 </dev/null", 1, "it overwrites disks, and there is no terminal to ask at",
         "look with --dry-run"},
        {"protect --yes sda2=m1", 1, "sda2 is protected already, by M2", "qelc unprotect sda2"},
        {"protect --yes l1=M2", 1, "M2 is the mirror of sda2 already", ""},
        {"protect --yes sda1=l1", 1, "sda1 cannot be its own mirror", ""},
        {"protect --yes sda1=m1 sda3=m1", 1, "m1 is named twice", ""},
        {"protect --yes sda1=sdaa2", 4, "sdaa2: there is no such disk; did you mean sda2?", ""},
        {"protect --yes --no-create --group gg --start now --every 1h sda1=m1", 4, "there is no group gg",
         ""},
        {"unprotect sda1 /dev/sda1 none", 1,
         "sda1: it is not protected; sda1: it is named twice; none: there is no such disk", ""},
        {"resync sda3 </dev/null", 4, "sda3: it is not protected", "qelc mirrors"},
        {"snapshot --group no", 4, "there is no group no", "qelc group list"},
        {"snapshot --group h", 1, "group h has no disks", "qelc group add h DISK"},
        {"snapshot --disk sda1", 4, "sda1 is not protected", ""},
        {"schedule set --disk sda1 --start now --every 1h", 4, "sda1 is not protected", ""},
        {"schedule get --group h", 4, "h has no schedule", "qelc schedule set --group h --start"},
        {"schedule delete --disk sda2", 4, "sda2 has no schedule", ""},
        {"group create g", 1, "there is a group g already", ""},
        {"group add no sda1", 4, "there is no group no", ""},
        {"group add g sda2 sda1", 1, "sda1: it is in the group already", ""},
        {"group remove g sda2", 4, "sda2 is not in group g", ""},
        {"group remove g ab", 1, "ab may be abc1 (abc1), ABD2 (ABD2)", "type more"},
        {"group delete no", 4, "there is no group no", ""},
        {"db delete --instance i", 4, "there is no database i", ""},
        {"mirrors --wait sda1", 4, "sda1 is not protected", ""},
        {"mirror sda1", 2, "MIRROR or --in is required", "qelc help mirror"},
        {"mirror sda1 m1 </dev/null", 1, "it overwrites disks, and there is no terminal to ask at", ""},
        {"mirror sda2 m1 --yes", 1, "sda2 is protected already, by M2", "qelc unprotect sda2"},
        {"mirror sda1 M2 --yes", 1, "M2 is the mirror of sda2 already", "qelc unprotect sda2"},
        {"mirror sda1 --in /var", 1, "L1: there is no such disk", "qelc help mirror"},
        {"mirror sda2 --in /var", 1, "sda2 is protected already, by M2", ""},
        {"--host 127.0.0.1:1 unprotect sda1", 3, "127.0.0.1:1: Connection refused", ""},
    };
    std::string answers;
    for (const auto &[arguments, status, reason, hint] : cases) {
        const outcome end = run("$BIN/qelc --json " + arguments + " 2>/dev/null");
        EXPECT_EQ(end.first, status) << arguments;
        for (const std::string &text :
             {"\"reason\":\"" + reason, "\"hint\":" + (hint.empty() ? "" : "\"" + hint)})
            EXPECT_NE(end.second.find(text), std::string::npos) << arguments << "\n" << end.second;
        answers += end.second;
    }
    for (const char *verb :
         {"protect --group new sda1=m1", "mirror sda1 m1", "unprotect sda2", "resync sda2",
          "cancel-resync sda2", "snapshot --disk sda2", "schedule set --disk sda2 --start now --every 5",
          "group create new", "group add g sda2", "group remove g abd2", "group delete g",
          "db set --instance i"}) {
        const outcome end =
            run("$BIN/qelc --json " + std::string(verb) + " --dry-run </dev/null 2>/dev/null");
        EXPECT_EQ(end.first, 0) << verb;
        EXPECT_NE(end.second.find(R"("status":"planned")"), std::string::npos) << verb << end.second;
        answers += end.second;
    }
    expect_valid(answers);
    for (const char *function : {"tw_disk_protect", "tw_disk_unprotect", "tw_disk_resync",
                                 "tw_disk_stop_sync", "Kav_connect_db_flush_cfg"})
        EXPECT_EQ(world.calls(function), texts()) << function;
    log.tolerate("Failed to find group");
    expect_saved(group_element("g", 0, 0, 0, {"abc1", "ABD2", "L1"}) + group_element("h", 0, 0, 0, {}), "");
}

TEST_F(mirror_tools, AVerbLooksWhatHasBecomeOfItsWish)
{
    using mirrors = std::vector<scripted_relationship>;
    const auto one = mirror(1, "UnSync", 0), two = mirror(2, "UnSync", 0), three = mirror(3, "Sync On", 5),
               four = mirror(4, "Sync Finished", 100);
    start(group_element("g", 0, 0, 0, {}) + group_element("s", far_future, far_future, 90, {"L4"}), "");
    const std::string see_log = "hint: the log of the daemon says more: journalctl -t qelcd\n";
    const std::string protected_ones = "hint: qelc mirrors shows which disks are protected\n";
    const std::string refused = ": the daemon has refused it; its mirror is now: ";
    const std::string copy_it = "hint: nothing is copied before you type: qelc resync sda1\n";
    const struct {
        std::string arguments, function;
        std::vector<std::pair<std::string, texts>> results; // of the function, and with what arguments
        mirrors after;                                      // from the call on
        int status;
        std::string output;
    } cases[] = {
        {"protect --yes --group g sda1=m1",
         "tw_disk_protect",
         {{"0", {"L1", "M1"}}},
         {two, three, four},
         1,
         "error: protect sda1=m1 could not be done: sda1: the daemon has not protected it\n" + see_log},
        {"protect --yes --group new --start '2100-01-01 00:00' --every 90 /dev/sda1=M1",
         "tw_disk_protect",
         {{"0", {"L1", "M1"}}},
         {one, two},
         0,
         "sda1: is protected, by M1 (not synchronised)\nnew: has the disk\n"
         "new: snapshots every 90 s from 2100-01-01 00:00:00 UTC\n" +
             copy_it},
        {"protect --yes --group g sda1=m1",
         "tw_disk_protect",
         {{"0", {"L1", "M1"}}},
         {one},
         0,
         "sda1: is protected, by M1 (not synchronised)\ng: has the disk\n" + copy_it},
        {"protect --yes --group gone sda1=m1",
         "tw_disk_protect",
         {{"-1", {"L1", "M1"}}},
         {two, three, four},
         1,
         "error: protect sda1=m1 could not be done: sda1: the daemon has not protected it\n" + see_log},
        {"unprotect sda2",
         "tw_disk_unprotect",
         {{"0", {"L2"}}},
         {two, three, four},
         1,
         "error: unprotect sda2 could not be done: sda2" + refused + "not synchronised\n" + protected_ones},
        {"unprotect sda2 sda3 sda1",
         "tw_disk_unprotect",
         {{"0", {"L2"}}, {"-1", {"L3"}}},
         {three},
         6,
         "sda2: is no longer protected\nerror: unprotect sda2 sda3 sda1 could not be done for all: sda3" +
             refused + "synchronising; sda1: it is not protected\n" + protected_ones},
        {"unprotect sda4",
         "tw_disk_unprotect",
         {{"0", {"L4"}}},
         {two, three},
         0,
         "sda4: is no longer protected\n"
         "s: takes no more snapshots, as not all of its disks are protected\n"},
        {"resync --yes sda2 sda3",
         "tw_disk_resync",
         {{"0", {"L2", "0"}}, {"-1", {"L3", "0"}}},
         {two, three, four},
         6,
         "sda2: is to be copied to its mirror as a whole (not synchronised)\nerror: resync sda2 sda3 could "
         "not be "
         "done for all: sda3" +
             refused + "synchronising\n" + protected_ones},
        {"cancel-resync sda2",
         "tw_disk_stop_sync",
         {{"-1", {"L2"}}},
         {two, three, four},
         1,
         "error: cancel-resync sda2 could not be done: sda2" + refused + "not synchronised\n" +
             protected_ones},
        {"snapshot --disk sda3",
         "",
         {},
         {two, three, four},
         1,
         "error: snapshot sda3 could not be done: a disk is not synchronised yet: sda3 is synchronising, 5 "
         "%\n"
         "hint: to wait until it is level: qelc mirrors --wait sda3\n"},
        {"db set --instance i",
         "Kav_connect_db_flush_cfg",
         {{"0", {}}},
         {two, three, four},
         1,
         "error: db set i could not be done: i: the daemon has taken it, but does not list it\n" + see_log},
    };
    for (const char *function : {"tw_disk_protect", "tw_disk_unprotect"})
        world.delay(function, 1.5);
    for (const auto &row : cases) {
        world.relationships({two, three, four});
        for (const auto &[result, arguments] : row.results)
            world.once(row.function, result, arguments);
        const size_t before = world.calls(row.function).size();
        std::thread later([&] {
            const auto has_begun = [&] {
                return row.results.empty() || world.calls(row.function).size() > before;
            };
            EXPECT_TRUE(eventually(has_begun)) << row.arguments;
            world.relationships(row.after);
        });
        const outcome end = run("TZ=UTC $BIN/qelc " + row.arguments +
                                " 2>/var/tmp/said; end=$?; grep -v '^  \\|^Every' /var/tmp/said; exit $end");
        later.join();
        EXPECT_EQ(end, (outcome{row.status, row.output})) << row.arguments;
    }
    log.tolerate("*");
    const std::string kept = group_element("g", 0, 0, 0, {"L1"}) + group_element("s", 0, 0, 0, {"L4"});
    expect_saved(kept + group_element("new", far_future, far_future, 90, {"L1"}), "");
    const std::pair<std::string, outcome> groups[] = {
        {"delete new", {0, "new: is deleted, and its schedule\n"}},
        {"create h SDA1 l2",
         {4, "error: group create h SDA1 l2 could not be done: SDA1: there is no such disk\n"
             "hint: qelc disks shows the disks of the host\n"}},
        {"create h sda1 l2", {0, "h: is there\nsda1: is in group h\nsda2: is in group h\n"}},
        {"add h sda3", {0, "sda3: is in group h\n"}},
        {"remove h sda1", {0, "sda1: is not in group h any more\n"}},
    };
    for (const auto &[arguments, end] : groups)
        EXPECT_EQ(run("$BIN/qelc group " + arguments), end) << arguments;
    expect_saved(kept + group_element("h", 0, 0, 0, {"L2", "L3"}), "");
}

TEST_F(mirror_tools, AMirrorIsOverwrittenOnlyAfterAnAnswer)
{
    world.relationships({mirror(2, "UnSync", 0)});
    start();
    const auto answer = [&](const std::string &text) {
        write_file("/var/tmp/screen", "");
        return run("{ until grep -q stop: /var/tmp/screen; do sleep 0.01; done; echo " + text +
                   "; } | script -qec '$BIN/qelc resync sda2' /dev/null >/var/tmp/screen; cat "
                   "/var/tmp/screen")
            .second;
    };
    EXPECT_NE(answer("sda2").find("you did not confirm it; nothing is changed"), std::string::npos);
    EXPECT_EQ(world.calls("tw_disk_resync"), texts());
    world.once("tw_disk_resync", "0");
    const std::string seen = answer("M2");
    EXPECT_NE(seen.find("Everything on M2 will be overwritten with the content of sda2."), std::string::npos);
    EXPECT_NE(seen.find("sda2: is to be copied"), std::string::npos) << seen;
    EXPECT_EQ(world.calls("tw_disk_resync"), texts{"tw_disk_resync L2 0"});
}

TEST_F(mirror_tools, AWaitForAMirrorThatIsNotThereCountsDown)
{
    start();
    const std::string absent = "11111111-2222-3333-4444-555555555555";
    run("timeout 5 script -qec '$BIN/qelc protect --yes sda1=" + absent +
        "' /dev/null </dev/null >/var/tmp/screen");
    const std::string seen = read_file("/var/tmp/screen");
    const std::string what = " s left: the daemon looks for " + absent;
    EXPECT_NE(seen.find("40" + what), std::string::npos) << seen;
    EXPECT_NE(seen.find("39" + what), std::string::npos) << seen;
    // Elsewhere it is one line, which comes before the daemon has an answer.
    run("timeout 3 $BIN/qelc protect --yes sda2=" + absent + " >/var/tmp/screen 2>&1");
    const std::string line =
        "the daemon looks for " + absent + ", which it does not see yet, for up to 40 s\n";
    EXPECT_NE(read_file("/var/tmp/screen").find(line), std::string::npos) << read_file("/var/tmp/screen");
    log.tolerate("*");
}

TEST_F(mirror_tools, GroupsSchedulesAndMirrorsAreShownToPersonsAndPrograms)
{
    world.relationships({mirror(1, "Sync On", 45), mirror(2, "Sync Finished", 100)});
    world.disks({{.name = "sdv",
                  .path = "/dev/sdv",
                  .vendor = "QRZ",
                  .model = "Volume",
                  .sectors = 2048,
                  .parts = {{.name = "sdv1", .guid = "P", .fs = "ext4", .size = 2 << 20, .used = 1000}}}});
    world.scsi_guid("/dev/sdv", "G");
    world.part_type("/dev/sdv", 2);
    start(group_element("g", far_future, far_future, 90, {"L1", "L3"}) + group_element("h", 0, 0, 0, {}),
          schedule_element(2, far_future, far_future, 7200));
    const auto done = [](const std::string &verb, const std::string &results) {
        return R"({"command":")" + verb + R"(","status":"done","reason":null,"hint":null,"results":[)" +
               results + "]}\n";
    };
    const std::string unknown =
        R"("rate":null,"seconds_left":null,"bytes_behind":null,"pages_behind":null,"page_size":null,)"
        R"("level_ago":null,"tracked":null,"untracked_reason":null,)";
    const struct {
        std::string arguments;
        int status;
        std::string output;
    } cases[] = {
        {"group list", 0, "  Group  Disk\n  g      L1\n         L3\n  h\n"},
        {"group list --json", 0,
         done("group list", R"({"name":"g","disks":["L1","L3"]},{"name":"h","disks":[]})")},
        {"schedule get --group g", 0, "  Start  2100-01-01 00:00:00 UTC\n  Every  90 s\n"},
        {"--json schedule get --disk l2", 0,
         done("schedule get", R"({"start":"2100-01-01T00:00:00Z","every":7200})")},
        {"schedule get --disk L9 --json", 4,
         R"({"command":"schedule get","status":"not-found","reason":"L9: there is no such disk",)"
         R"("hint":"qelc disks shows the disks of the host, qelc mirrors those that are mirrored","results":[]})"
         "\n"},
        {"disks", 0,
         "  Disk    Size     Table  GUID  Role  FS    Label  Used    System  Vendor\n"
         "  sdv     1.0 MiB  GPT    G                                        QRZ Volume\n"
         "    sdv1  2.0 MiB         P           ext4         1000 B\n"},
        {"disks --json", 0,
         done(
             "disks",
             R"({"name":"sdv","guid":"G","size":1048576,"table":"GPT",)"
             R"("vendor":"QRZ Volume","system":false,"role":null,"left_out":null,"partitions":[{"name":"sdv1","guid":"P",)"
             R"("size":2097152,"used":1000,"file_system":"ext4","label":""}]})")},
        {"mirrors --json", 0,
         done(
             "mirrors",
             R"({"disk":"sda1","source":"L1","mirror":"M1","state":"synchronising","percent":45,)" + unknown +
                 R"("schedules":[{"start":"2100-01-01T00:00:00Z","every":90,"next":"2100-01-01T00:00:00Z",)"
                 R"("group":"g"}]},)"
                 R"({"disk":"sda2","source":"L2","mirror":"M2","state":"synchronised","percent":100,)" +
                 unknown +
                 R"("schedules":[{"start":"2100-01-01T00:00:00Z","every":7200,"next":"2100-01-01T00:00:00Z",)"
                 R"("group":null}]})")},
        {"schedule delete --disk L2 --json", 0,
         done("schedule delete",
              R"({"disk":"sda2","guid":"L2","status":"done","text":"no more snapshots are taken"})")},
        {"schedule delete --group g", 0, "g: no more snapshots are taken\n"},
    };
    std::string answers;
    for (const auto &one : cases) {
        EXPECT_EQ(run("TZ=UTC $BIN/qelc " + one.arguments), (outcome{one.status, one.output}))
            << one.arguments;
        answers += one.output.starts_with('{') ? one.output : "";
    }
    expect_valid(answers + run("$BIN/qelc --json mirrors --nothing 2>/dev/null").second);
    log.tolerate("Failed to ");
    expect_saved(group_element("g", 0, 0, 0, {"L1", "L3"}) + group_element("h", 0, 0, 0, {}), "");
}

TEST_F(mirror_tools, ThePasswordOfADatabaseIsSeenByTheHostAlone)
{
    start();
    world.always("Kav_connect_db_flush_cfg", "0");
    const std::string set = "$BIN/qelc --json db set --instance i --user u";
    const outcome not_listed = {
        1, R"({"command":"db set","status":"failed","reason":"i: the daemon has taken it, but )"
           R"(does not list it","hint":"the log of the daemon says more: journalctl -t qelcd",)"
           R"("results":[{"database":"i","status":"refused","reason":"the daemon has taken )"
           R"(it, but does not list it"}]})"
           "\n"};
    write_file("/var/tmp/secret", "s3<cret\nmore");
    write_file("/var/tmp/screen", "");
    EXPECT_EQ(run(set + " --password-file /var/tmp/secret"), not_listed);
    EXPECT_EQ(run(set + " --password-file - </var/tmp/secret"), not_listed);
    EXPECT_EQ(run(set + " --password-file /dev/null").first, 2);
    EXPECT_EQ(run(set + " </dev/null").first, 2);
    EXPECT_EQ(
        run("{ until grep -q : /var/tmp/screen; do sleep 0.01; done; echo 's3<cret'; } | script -qec '" +
            set + "; stty | grep echo' /dev/null >/var/tmp/screen; cat /var/tmp/screen"),
        (outcome{0, "password of u: \r\n" + not_listed.second.substr(0, not_listed.second.size() - 1) +
                        "\r\n"}));
    EXPECT_EQ(world.calls("Kav_connect_db_flush_cfg"),
              texts(3, "Kav_connect_db_flush_cfg i 1 0 oracle u s3<cret (null) 127.0.0.1 1521"));
    for (const log_line &line : log.lines())
        EXPECT_EQ(line.text.find("cret"), std::string::npos) << line.text;
}

TEST_F(mirror_tools, MirrorsAreShownInATable)
{
    world.relationships({mirror(1, "Sync Finished", 100), mirror(2, "Sync On", 45), mirror(3, "UnSync", 0),
                         mirror(4, "Sync On", 7, "Down")});
    start(group_element("g", far_future, far_future, 90, {"L1", "L3"}),
          schedule_element(1, far_future, far_future, 7200) + schedule_element(2, past, past, 86400));
    constexpr uint64_t mib = 1 << 20, size = 100 * mib;
    write_progress({"L1", "M1", size, size, 5, 9, 4096, false, 7, tracked_writes::yes, ""}); // not so new
    write_progress({"L2", "M2", size, 45 * mib, 2 * mib, 3, 4096, false, 0, tracked_writes::yes, ""});
    write_progress({"L3", "M3", size, 0, 0, 0, 4096, false, 7, tracked_writes::yes, ""});
    output_of("sed -i 's/^process .*/process 1 1/' /run/twinvault/L3"); // it has ended
    write_progress({"L4", "M4", size, 0, 0, 0, 0, false, seconds_since_boot() - 200, tracked_writes::no,
                    "a \x1b[31m reason"});
    const std::string next = "$(date -ud @" + std::to_string(past + 86400) + " '+%F %T UTC')";
    EXPECT_EQ(run("TZ=UTC $BIN/qelc mirrors | sed \"s/" + next + "/PAST AND A DAY/\"").second,
              R"(  Disk  State             Done   Rate       Left  Behind   Level      Tracked
  sda1  synchronised      100 %  -          -     0 B      now        yes
  sda2  synchronising     45 %   2.0 MiB/s  28 s  55 MiB   -          yes
  sda3  not synchronised  0 %    -          -     -        -          -
  sda4  mirror down       7 %    -          -     100 MiB  3 min ago  no
  sda4 is not tracked: a ?[31m reason

  Disk  Source, then mirror  Next snapshot            Every  Group
  sda1  L1                   2100-01-01 00:00:00 UTC  2 h
        M1                   2100-01-01 00:00:00 UTC  90 s   g
  sda2  L2                   PAST AND A DAY  1 d
        M2
  sda3  L3                   2100-01-01 00:00:00 UTC  90 s   g
        M3
  sda4  L4
        M4
)");
}

TEST_F(mirror_tools, WatchFollowsSynchronisationsUntilNoneRuns)
{
    const struct {
        std::vector<scripted_relationship> mirrors;
        std::string lines, drawn;
    } steps[] = {
        {{mirror(1, "Sync On", 10), mirror(3, "UnSync", 0)}, "sda1 synchronising 10 %\n", "  sda1  [##..."},
        {{mirror(1, "Sync Finished", 100), mirror(2, "Recovery On", 5)},
         "sda1 synchronised 100 %\nsda2 recovering 5 %\n",
         "\033[1A\r  sda1  [####################]  100 %  synchronised\033[K\r\n\r  sda2  [#..."},
        {{mirror(1, "Sync Finished", 100, "Down")},
         "sda1 mirror down 100 %\nsda2 no longer a mirror 5 %\nended 1\n",
         "error: not level: sda1: mirror down since "},
    };
    world.relationships(steps[0].mirrors);
    start();
    output_of("watch() { exec >$1; shift; \"$@\"; echo ended $?; }; "
              "watch /var/tmp/lines $BIN/qelc mirrors --watch 1 & "
              "watch /var/tmp/screen script -qec \"$BIN/qelc mirrors --watch 1\" /dev/null </dev/null &");
    std::string expected;
    for (const auto &step : steps) {
        world.relationships(step.mirrors);
        expected += step.lines;
        EXPECT_TRUE(eventually([&] {
            return without_times("/var/tmp/lines") == expected &&
                   read_file("/var/tmp/screen").find(step.drawn) != std::string::npos;
        })) << step.lines;
    }
}

TEST_F(mirror_tools, WaitingOutlivesTheWorkingProcessAndEndsWithAVerdict)
{
    world.relationships({mirror(1, "Sync On", 10), mirror(2, "UnSync", 0)});
    start();
    EXPECT_EQ(run("$BIN/qelc mirrors --wait --timeout 1 sda1"),
              (outcome{1, "error: time-out after 1 s: sda1: synchronising, 10 %\n"
                          "hint: to wait until it is level: qelc mirrors --wait sda1\n"}));
    EXPECT_EQ(run("$BIN/qelc mirrors --wait sda2").second.substr(0, 42),
              "error: not level: sda2: not synchronised, ");
    output_of("{ $BIN/qelc mirrors --wait sda1; echo ended $?; } >/var/tmp/waited 2>&1 &");
    const auto looks = [&] {
        const std::vector<log_line> lines = log.lines();
        return std::ranges::count(lines, "Recv cmd: GET_CLIENT_INFO", &log_line::text);
    };
    EXPECT_TRUE(eventually([&, before = looks()] { return looks() >= before + 2; }));
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    world.relationships({mirror(1, "UnSync", 10)}); // which is not the end of the copy
    qelcd::wait_for_new_worker(worker);
    log.tolerate("*");
    world.relationships({mirror(1, "Sync Finished", 100)});
    EXPECT_TRUE(eventually([] { return read_file("/var/tmp/waited") == "sda1: is level\nended 0\n"; }))
        << read_file("/var/tmp/waited");
}

TEST_F(tools, StandInManagerShowsAdoptsAndReleasesAHost)
{
    write_config({.guid = "C-1", .alias = "A"});
    daemon.start();
    log.tolerate("Failed to process job"); // a beat between the adoption and the start of heartbeats
    output_of("$BIN/standin-manager --guid M --port " + std::to_string(client_port + 1) +
              " >/var/tmp/served 2>&1 &");
    const auto served = [](const char *text) {
        return eventually([&] { return read_file("/var/tmp/served").find(text) != std::string::npos; });
    };
    EXPECT_TRUE(served("listening on "));
    const std::string host = "127.0.0.1:" + std::to_string(client_port);
    const auto manage = [&](const std::string &what) {
        return run("$BIN/standin-manager " + what + " " + host);
    };
    EXPECT_NE(manage("scan").second.find("HostName    private-host\n"), std::string::npos);
    const outcome page = manage("adopt --guid M");
    EXPECT_EQ(page.first, 0);
    EXPECT_NE(page.second.find("ID          C-1\n"), std::string::npos) << page.second;
    EXPECT_TRUE(served("command 32 origin 3: host private-host "));

    const std::string complaint = "standin-manager: " + host + ": ";
    EXPECT_EQ(manage("adopt"),
              (outcome{1, complaint + "add_client: a manager has already adopted this client\n"}));
    EXPECT_EQ(manage("release --guid M --client-guid other"),
              (outcome{1, complaint + "del_client: failure\n"}));
    log.expect(LOG_ERR, "Server(M) or client(other) error");
    EXPECT_EQ(manage("release --guid M"), (outcome{0, "released C-1\n"}));
    EXPECT_EQ(manage("release --guid M"), (outcome{1, complaint + "get_client_info: failure\n"}));
}

TEST_F(mirror_tools, TextsOfAHostAreShownToATerminalWithoutEffect)
{
    start(group_element("g&#10;\xc2\x9b"
                        "31m",
                        0, 0, 0,
                        {"L\xe2\x80\xae"
                         "1"}),
          "");
    EXPECT_EQ(run("$BIN/qelc group list"), (outcome{0, "  Group   Disk\n  g??31m  L?1\n"}));
    EXPECT_EQ(run("script -qec 'stty cols 11; $BIN/qelc group list; $BIN/qelc --wide group list' /dev/null "
                  "</dev/null | tr -d '\r'"),
              (outcome{0, "  Group   D\n  g??31m  L\n  Group   Disk\n  g??31m  L?1\n"}));
    const std::string document = std::string(xml_head) + "<Tessaron><GroupList><Group name=\"g&#10;%31m\">" +
                                 "<Disk guid=\"L%1\"/></Group></GroupList></Tessaron>\n";
    const std::string ask = "$BIN/qelc --raw kav_get_group";
    EXPECT_EQ(run(ask), (outcome{0, filled(document, "\xc2\x9b", "\xe2\x80\xae")}));
    std::string seen = run("script -qec '" + ask + "' /dev/null </dev/null").second;
    std::erase(seen, '\r');
    EXPECT_EQ(seen, filled(document, "?", "?"));
}

TEST_F(tools, StandInManagerOutlivesAShortageAndPrintsNamesWithoutEffect)
{
    output_of("(ulimit -n 12; exec $BIN/standin-manager --count 1 --port 7100) >/var/tmp/served 2>&1 &");
    const auto served = [](const char *text) {
        return eventually([&] { return read_file("/var/tmp/served").find(text) != std::string::npos; });
    };
    EXPECT_TRUE(served("listening on "));
    {
        std::vector<peer> silent;
        for (int i = 0; i < 20; i++)
            silent.push_back(connect_tcp("127.0.0.1", 7100));
        EXPECT_TRUE(served("standin-manager: accept: Too many open files\n"));
    }
    const std::string report = in_root("<Client HostName=\"a\xc2\x9b"
                                       "31m\" IPs=\"1&#10;2\"/>");
    EXPECT_TRUE(::ask(connect_tcp("127.0.0.1", 7100), request_head(32, report.size()), report));
    EXPECT_TRUE(served("host a?31m [1?2]"));
    const std::string lines = read_file("/var/tmp/served");
    EXPECT_LT(std::count(lines.begin(), lines.end(), '\n'), 25) << "one line for a shortage";
}
