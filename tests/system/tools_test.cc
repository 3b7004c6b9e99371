// The command-line tools against the shipped daemon and against each other.
#include "platform/linux/state/progress.h"
#include "tests/system/adopted_test.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

namespace {
template <class Base>
class with_tools : public Base {
protected:
    with_tools()
    {
        const std::string program = qelcd_path();
        setenv("BIN", program.substr(0, program.rfind('/')).c_str(), 1);
    }

    using outcome = std::pair<int, std::string>; // exit status, and what both streams got

    // A shell command line in which $BIN is the folder of the programs.
    static outcome run(const std::string &command)
    {
        FILE *pipe = popen(("exec 2>&1; " + command).c_str(), "re");
        outcome result{-1, ""};
        for (int byte = getc(pipe); byte != EOF; byte = getc(pipe))
            result.second += static_cast<char>(byte);
        result.first = WEXITSTATUS(pclose(pipe));
        return result;
    }
};
using tools = with_tools<system_test>;
using mirror_tools = with_tools<adopted_test>;

scripted_relationship mirror(int number, const char *state, unsigned percent, const char *link = "Up")
{
    const std::string text = std::to_string(number);
    return {"/dev/sda" + text, "L" + text, "M" + text, state, "Running", "Up", link, "", percent};
}

// The lines of a file, of which some begin with a time of day.
std::string without_times(const char *path)
{
    std::istringstream lines(read_file(path));
    std::string all;
    for (std::string line; std::getline(lines, line); all += line + "\n") {
        if (line.size() > 9 && line[2] == ':' && line[5] == ':')
            line.erase(0, 9);
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
        {"no_command", 2, "qelc: no_command: no such command (qelc --list names them all)\n"},
        {"--host :1 57", 2, "qelc: :1: not ADDR[:PORT]\n"},
        {"--socket /nowhere 57", 3, "qelc: /nowhere: No such file or directory\n"},
        {"--host 127.0.0.1:1 57", 3, "qelc: 127.0.0.1:1: Connection refused\n"},
        {"0", 3, "qelc: /var/run/qelcd.sock: the connection ended without an answer\n"},
    };
    log.tolerate("Invalid cmd: 0");
    for (const auto &one : cases)
        EXPECT_EQ(run("$BIN/qelc " + one.arguments), (outcome{one.status, one.output})) << one.arguments;
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
        {"schedule set --off --group g",
         R"(<Backup SourceType="1" Source="g"><Schedule StartTime="0" IntervalSeconds="0"/></Backup>)"},
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
         "schedule set: --start: 2031-02-29 12:00 is not a time: seconds since the epoch, now, or YYYY-MM-DD "
         "HH:MM[:SS]"},
        {"snapshot --disk A --group g", "snapshot: --disk excludes --group"},
        {"db set --instance i --user u </dev/null",
         "db set: --password-file is required if standard input is not a terminal"},
        {"db set --instance i --user u --password-file /dev/null", "db set: no password"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(run("$BIN/qelc " + one.arguments), (outcome{2, "qelc: " + one.complaint + "\n"}));
}

TEST_F(mirror_tools, VerbsDoWhatTheySay)
{
    world.relationships({mirror(2, "UnSync", 0)});
    start(group_element("g", 0, 0, 0, {}), "");
    const std::string verbs[][3] = {{"protect L1=M1", "tw_disk_protect", " L1 M1"},
                                    {"resync L2", "tw_disk_resync", " L2 0"},
                                    {"cancel-resync L2", "tw_disk_stop_sync", " L2"},
                                    {"--timeout 9 unprotect L2", "tw_disk_unprotect", " L2"}};
    for (const auto &[verb, function, arguments] : verbs) {
        world.once(function, "0");
        EXPECT_EQ(run("$BIN/qelc " + verb), (outcome{0, "status 0: success\n"}));
        EXPECT_EQ(world.calls(function), texts{function + arguments});
    }
    run("TZ=UTC $BIN/qelc schedule set --group g --every 90 --start '2100-01-01 00:00'");
    expect_saved(group_element("g", far_future, far_future, 90, {}), "");
    for (const char *verb : {"create h L1 L2", "add g L2 L3", "remove h L1", "delete g"})
        EXPECT_EQ(run("$BIN/qelc group " + std::string(verb)), (outcome{0, "status 0: success\n"})) << verb;
    expect_saved(group_element("h", 0, 0, 0, {"L2"}), "");
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
    const std::string success = R"({"status":0,"meaning":"success")";
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
         success + R"(,"groups":[{"name":"g","disks":["L1","L3"]},{"name":"h","disks":[]}]})"
                   "\n"},
        {"schedule get --group g", 0, "  Start  2100-01-01 00:00:00\n  Every  90 s\n"},
        {"schedule get --group h", 0, "no schedule\n"},
        {"--json schedule get --disk L2", 0, success + ",\"start\":4102444800,\"every\":7200}\n"},
        {"schedule get --disk L9 --json", 1, "{\"status\":1,\"meaning\":\"failure\"}\n"},
        {"disks", 0,
         "  Disk    Size     Table  GUID  FS    Used    System  Vendor\n"
         "  sdv     1.0 MiB  GPT    G                           QRZ Volume\n"
         "    sdv1  2.0 MiB         P     ext4  1000 B\n"},
        {"disks --json", 0,
         success + R"(,"disks":[{"name":"sdv","guid":"G","size":1048576,"table":"GPT",)"
                   R"("vendor":"QRZ Volume","system":false,"partitions":[{"name":"sdv1","guid":"P",)"
                   R"("size":2097152,"used":1000,"file_system":"ext4"}]}]})"
                   "\n"},
        {"mirrors --json", 0,
         success +
             R"(,"mirrors":[{"disk":"sda1","source":"L1","mirror":"M1","state":"synchronising","percent":45,)" +
             unknown +
             R"("schedules":[{"start":4102444800,"every":90,"next":4102444800,"group":"g"}]},)"
             R"({"disk":"sda2","source":"L2","mirror":"M2","state":"synchronised","percent":100,)" +
             unknown +
             R"("schedules":[{"start":4102444800,"every":7200,"next":4102444800,"group":null}]}]})"
             "\n"},
        {"schedule delete --disk L2 --json", 0, success + "}\n"},
        {"schedule delete --disk L1", 1, "status 1: failure\n"}, // has none, and the host goes on
        {"schedule delete --group g", 0, "status 0: success\n"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(run("TZ=UTC $BIN/qelc " + one.arguments), (outcome{one.status, one.output}))
            << one.arguments;
    log.tolerate("Failed to ");
    expect_saved(group_element("g", 0, 0, 0, {"L1", "L3"}) + group_element("h", 0, 0, 0, {}), "");
}

TEST_F(mirror_tools, ThePasswordOfADatabaseIsSeenByTheHostAlone)
{
    start();
    world.always("Kav_connect_db_flush_cfg", "0");
    const std::string set = "$BIN/qelc --json db set --instance i --user u";
    const std::string success = R"({"status":0,"meaning":"success"})";
    write_file("/var/tmp/secret", "s3<cret\nmore");
    write_file("/var/tmp/screen", "");
    EXPECT_EQ(run(set + " --password-file /var/tmp/secret"), (outcome{0, success + "\n"}));
    EXPECT_EQ(run(set + " --password-file - </var/tmp/secret"), (outcome{0, success + "\n"}));
    EXPECT_EQ(
        run("{ until grep -q : /var/tmp/screen; do sleep 0.01; done; echo 's3<cret'; } | script -qec '" +
            set + "; stty | grep echo' /dev/null >/var/tmp/screen; cat /var/tmp/screen"),
        (outcome{0, "password of u: \r\n" + success + "\r\n"}));
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
    const std::string next = "$(date -ud @" + std::to_string(past + 86400) + " '+%F %T')";
    EXPECT_EQ(run("TZ=UTC $BIN/qelc mirrors | sed \"s/" + next + "/PAST AND A DAY/\"").second,
              R"(  Disk  State             Done   Rate       Left  Behind   Level      Tracked
  sda1  synchronised      100 %  -          -     0 B      now        yes
  sda2  synchronising     45 %   2.0 MiB/s  28 s  55 MiB   -          yes
  sda3  not synchronised  0 %    -          -     -        -          -
  sda4  mirror down       7 %    -          -     100 MiB  3 min ago  no
  sda4 is not tracked: a ?[31m reason

  Disk  Source, then mirror  Next snapshot        Every  Group
  sda1  L1                   2100-01-01 00:00:00  2 h
        M1                   2100-01-01 00:00:00  90 s   g
  sda2  L2                   PAST AND A DAY  1 d
        M2
  sda3  L3                   2100-01-01 00:00:00  90 s   g
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
        {{mirror(1, "Sync Finished", 100)}, "sda2 no longer a mirror 5 %\nended 0\n", "\033[2A\r  sda1"},
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
