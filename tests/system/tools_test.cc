// The command-line tools against the shipped daemon and against each other.
#include "tests/support/system_test.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <regex>

namespace {
class tools : public system_test {
protected:
    tools()
    {
        const std::string program = qelcd_path();
        setenv("BIN", program.substr(0, program.rfind('/')).c_str(), 1);
    }

    struct outcome {
        int status;
        std::string output; // of both streams
        bool operator==(const outcome &) const = default;
        friend void PrintTo(const outcome &result, std::ostream *out)
        {
            *out << "status " << result.status << ", output " << result.output;
        }
    };

    // A shell command line in which $BIN is the folder of the programs.
    static outcome run(const std::string &command)
    {
        FILE *pipe = popen(("exec 2>&1; " + command).c_str(), "re");
        outcome result{-1, ""};
        for (int byte = getc(pipe); byte != EOF; byte = getc(pipe))
            result.output += static_cast<char>(byte);
        result.status = WEXITSTATUS(pclose(pipe));
        return result;
    }
};

constexpr char control_path[] = "/var/tmp/control";
constexpr char served_path[] = "/var/tmp/served";
constexpr char report[] =
    "<Tessaron><Client HostName=\"h\" IPs=\"192.0.2.7\"><DiskList><Disk/><Disk/><Volume/>"
    "</DiskList></Client></Tessaron>";
constexpr char report_text[] = "127.0.0.1 command 32 origin 0: host h [192.0.2.7], disks 2 -> ";
constexpr char xml_head[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// A stand-in manager that serves until the test is over.
class standin {
public:
    explicit standin(const std::string &options)
        : pid_(std::stoi(output_of("$BIN/standin-manager --guid M --control " + std::string(control_path) +
                                   " " + options + " >" + served_path + " 2>&1 & echo $!")))
    {
        wait_for("listening on ");
    }
    ~standin()
    {
        kill(pid_, SIGKILL);
        EXPECT_TRUE(eventually([&] { return kill(pid_, 0) != 0; })); // its port is free then
    }
    standin(const standin &) = delete;
    standin &operator=(const standin &) = delete;

    // What it has printed, without the times.
    static std::string output()
    {
        return std::regex_replace(read_file(served_path), std::regex("\\d\\d:\\d\\d:\\d\\d "), "");
    }
    static void wait_for(const std::string &text, size_t from = 0)
    {
        EXPECT_TRUE(eventually([&] { return output().find(text, from) != std::string::npos; }))
            << text << " is not in " << output();
    }
    // With these options in its control file, or without the file.
    void hang_up(const scripted_text &options, const std::string &expected) const
    {
        const size_t before = output().size();
        remove(control_path);
        if (options)
            write_file(control_path, *options);
        kill(pid_, SIGHUP);
        wait_for(expected, before);
    }

    static peer send_report()
    {
        peer host = connect_tcp("127.0.0.1", 9411);
        host.send(frame(request_head(32, strlen(report)), report));
        return host;
    }
    // The status and body of the answer, in words.
    static std::string answer(const peer &host = send_report())
    {
        const peer::received received = host.receive();
        const std::optional<reply> whole = parse_reply(received.bytes);
        return whole ? std::to_string(whole->head.ret) + " " + whole->body
                     : std::to_string(received.bytes.size()) + " bytes";
    }

private:
    pid_t pid_;
};

std::string manager_body(const std::string &addresses)
{
    return std::string(xml_head) + "<Tessaron><Server ID=\"M\" IPs=\"" + addresses + "\"/></Tessaron>\n";
}
} // namespace

TEST_F(tools, QelcPrintsStatusAndAnswerAndEndsWithWhatTheyMean)
{
    write_config({.guid = "G", .alias = "A", .manager_guid = "M"});
    world.always("kavdisk_rescan_dev", "0");
    daemon.start();
    const std::string tcp = "--host 127.0.0.1:" + std::to_string(client_port) + " ";
    const std::string document = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Tessaron>";
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
        {"scan_client", 1, "status 52: a manager has already adopted this client\n"},
        {"--raw rescan_devices", 1, "qelc: status 1: failure\n"},
        {"no_command", 2, "qelc: no_command: no such command (qelc --list names them all)\n"},
        {"--host :1 57", 2, "qelc: :1: not ADDR[:PORT]\n"},
        {"-f /nowhere 57", 2, "qelc: /nowhere: No such file or directory\n"},
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
        {"--ip 192.0.2.1 54 --target-iqn iqn.m --guid M",
         R"(<Server ID="M" IPs="192.0.2.1" TargetIqn="iqn.m"/>)"},
        {"del_client --client-guid C --guid S", R"(<Server ID="S"/><Client ID="C"/>)"},
        {"rename_client --alias '[a, \"b\"]'", R"(<Client Alias="[a, &quot;b&quot;]"/>)"},
        {"rename_client --alias ''", R"(<Client Alias=""/>)"},
        {"establish_channels --target-ip 192.0.2.2:3261 --initiator-ip 192.0.2.1 --target-iqn T "
         "--initiator-iqn I",
         R"(<Channel InitiatorIqn="I" TargetIqn="T"><Path InitiatorIP="192.0.2.1" TargetIP="192.0.2.2:3261"/>)"
         "</Channel>"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(run("$BIN/qelc --print-body " + one.arguments),
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
        {"add_client", "add_client: --guid is missing"},
        {"2 --guid M", "2: --ip is missing"},
        {"add_client --guid M --ip host", "add_client: --ip host: not ADDR"},
        {"add_client --guid M --guid N --ip 192.0.2.1", "add_client: --guid is given more than once"},
        {"rename_client --alias A --guid M", "rename_client: --guid does not belong to this command"},
        {"scan_client --ip 192.0.2.1", "scan_client: --ip does not belong to this command"},
        {"rename_client --alias A '<x/>'", "rename_client: --alias and a body exclude each other"},
        {"rename_client --alias A -f /dev/null", "rename_client: --alias and a body exclude each other"},
        {"establish_channels --initiator-iqn I --target-iqn T --initiator-ip 192.0.2.1 --target-ip "
         "192.0.2.2:x",
         "establish_channels: --target-ip 192.0.2.2:x: not ADDR[:PORT]"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(run("$BIN/qelc " + one.arguments), (outcome{2, "qelc: " + one.complaint + "\n"}));
}

TEST_F(tools, StandInManagerTakesReportsAndAnswersWithItsRecord)
{
    const std::string serve = "$BIN/standin-manager --count 1 --guid 'M & 1' --ip 192.0.2.1 --ip 192.0.2.2 "
                              "--target-iqn iqn.m ";
    const std::string send = "until $BIN/qelc --raw --host 127.0.0.1:9411 32 '" + std::string(report) +
                             "' 2>$TMPDIR/error; test $? -ne 3; do :; done; cat $TMPDIR/error; wait";
    const outcome answered =
        run(serve + ">$TMPDIR/served & " + send + "; sed 's/^..:..:.. //' $TMPDIR/served");
    EXPECT_EQ(answered.output,
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Tessaron>"
              "<Server ID=\"M &amp; 1\" IPs=\"192.0.2.1 192.0.2.2\" TargetIqn=\"iqn.m\"/></Tessaron>\n"
              "listening on 0.0.0.0:9411\n"
              "127.0.0.1 command 32 origin 0: host h [192.0.2.7], disks 2 -> 0\n");

    const outcome refused = run(serve + "--answer 50 >$TMPDIR/served & " + send);
    EXPECT_EQ(refused.output, "qelc: status 50: no manager has adopted this client\n");
}

TEST_F(tools, StandInManagerShowsAScannedHost)
{
    write_config({.guid = "G"});
    daemon.start();
    const outcome page = run("$BIN/standin-manager scan 127.0.0.1:" + std::to_string(client_port));
    EXPECT_EQ(page.status, 0);
    EXPECT_NE(page.output.find("HostName    private-host\n"), std::string::npos) << page.output;
    EXPECT_EQ(run("$BIN/standin-manager scan 127.0.0.1:1"),
              (outcome{1, "standin-manager: 127.0.0.1:1: Connection refused\n"}));
}

TEST_F(tools, DifficultManagerDoesWhatItIsToldAndSaysSo)
{
    const std::string body = manager_body("127.0.0.1"); // where the report came in
    const struct {
        std::string options, answer, line;
    } cases[] = {
        {"", "0 " + body, std::string(report_text) + "0\n"},
        {"--answer 52", "52 ", std::string(report_text) + "52\n"},
        {"--stall 1 --answer 50", "50 ", std::string(report_text) + "stalled 1 s, 50\n"},
        {"--cut", std::to_string((sizeof(message_head) + body.size()) / 2) + " bytes",
         std::string(report_text) + "cut\n"},
        {"--cut --answer 50", "8 bytes", std::string(report_text) + "cut\n"},
        {"--refuse --answer 50", "0 bytes", "127.0.0.1 refused\n"},
        {"--refuse --cut --stall 600 --answer 50 --chance 0", "0 " + body, std::string(report_text) + "0\n"},
    };
    for (const auto &one : cases) {
        const standin manager(one.options);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(standin::answer(), one.answer) << one.options;
        EXPECT_EQ(one.line.find("stalled") != std::string::npos,
                  std::chrono::steady_clock::now() - start >= 1s)
            << one.options;
        EXPECT_EQ(standin::output(), "listening on 0.0.0.0:9411\n" + one.line) << one.options;
    }
}

TEST_F(tools, ChanceIsDrawnFromTheSeed)
{
    const auto draw = [](const std::string &seed) {
        const standin manager("--answer 7 --chance 50 --seed " + seed);
        std::string answers;
        for (int i = 0; i < 40; ++i)
            answers += standin::answer()[0];
        return answers;
    };
    const std::string first = draw("1");
    EXPECT_EQ(draw("1"), first);
    EXPECT_NE(draw("2"), first);
    EXPECT_NEAR(static_cast<double>(std::ranges::count(first, '7')), 20, 12) << first;
}

TEST_F(tools, HangUpChangesTheManagerAndAStalledHostStopsNoOther)
{
    const standin manager("--stall 600 --ip 192.0.2.1");
    const peer stalled = standin::send_report();
    standin::wait_for("stalled 600 s, 0\n");

    manager.hang_up("# better\nstall 0\n\n ip  192.0.2.8 \nip 192.0.2.9",
                    "options read from /var/tmp/control\n");
    EXPECT_EQ(standin::answer(), "0 " + manager_body("192.0.2.8 192.0.2.9"));

    const struct {
        scripted_text file;
        std::string complaint;
    } cases[] = {
        {std::nullopt, ": No such file or directory"},
        {"answer 50\nfoo 3\n", ":2: The following argument was not expected: --foo=3"},
        {"answer 50\nip 192.0.2\n", ":2: --ip: 192.0.2 is not an IPv4 address"},
        {"port 1\n", ":1: The following argument was not expected: --port=1"},
        {"answer 50\n\nanswer\n", ":3: --answer: 1 required UINT missing"},
        {"answer 50\nanswer 51\n", ": --answer: At Most 1 required but received 2"},
    };
    for (const auto &one : cases) {
        manager.hang_up(one.file, control_path + one.complaint + ": the options stay as they were\n");
        EXPECT_EQ(standin::answer(), "0 " + manager_body("192.0.2.8 192.0.2.9")) << one.complaint;
    }

    // What the file does not say any more is as the command line said it.
    manager.hang_up("stall 0\nanswer 50\nrefuse false", "options read from /var/tmp/control\n");
    EXPECT_EQ(standin::answer(), "50 ");
    EXPECT_EQ(stalled.receive(0ms).closed, false);
}

TEST_F(tools, StandInManagerAdoptsAndReleasesAHost)
{
    write_config({.guid = "C-1", .alias = "A"});
    daemon.start();
    log.tolerate("Failed to process job"); // a beat between the adoption and the start of heartbeats
    const standin manager("--port " + std::to_string(client_port + 1));
    const std::string host = "127.0.0.1:" + std::to_string(client_port);
    const outcome page = run("$BIN/standin-manager adopt --guid M " + host);
    EXPECT_EQ(page.status, 0);
    EXPECT_NE(page.output.find("ID          C-1\n"), std::string::npos) << page.output;
    EXPECT_NE(run("$BIN/qelc --raw local_list").output.find(R"(<Manager GUID="M" IPs="127.0.0.1"/>)"),
              std::string::npos);
    standin::wait_for("command 32 origin 3: host private-host ");

    const std::string complaint = "standin-manager: " + host + ": ";
    EXPECT_EQ(run("$BIN/standin-manager adopt " + host),
              (outcome{1, complaint + "add_client: a manager has already adopted this client\n"}));
    EXPECT_EQ(run("$BIN/standin-manager release --guid M --client-guid other " + host),
              (outcome{1, complaint + "del_client: failure\n"}));
    log.expect(LOG_ERR, "Server(M) or client(other) error");
    EXPECT_EQ(run("$BIN/standin-manager release --guid M " + host), (outcome{0, "released C-1\n"}));
    EXPECT_EQ(run("$BIN/standin-manager release --guid M " + host),
              (outcome{1, complaint + "get_client_info: failure\n"}));
}
