// The command-line tools against the shipped daemon and against each other.
#include "tests/support/system_test.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

namespace {
class tools : public system_test {
protected:
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
        const std::string program = qelcd_path();
        setenv("BIN", program.substr(0, program.rfind('/')).c_str(), 1);
        FILE *pipe = popen(("exec 2>&1; " + command).c_str(), "re");
        outcome result{-1, ""};
        for (int byte = getc(pipe); byte != EOF; byte = getc(pipe))
            result.output += static_cast<char>(byte);
        result.status = WEXITSTATUS(pclose(pipe));
        return result;
    }
};
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

TEST_F(tools, StandInManagerTakesReportsAndAnswersWithItsRecord)
{
    const std::string serve = "$BIN/standin-manager --count 1 --guid 'M & 1' --ip 192.0.2.1 --ip 192.0.2.2 "
                              "--target-iqn iqn.m ";
    const std::string report =
        "'<Tessaron><Client HostName=\"h\" IPs=\"192.0.2.7\"><DiskList><Disk/><Disk/><Volume/>"
        "</DiskList></Client></Tessaron>'";
    const std::string send = "until $BIN/qelc --raw --host 127.0.0.1:9411 32 " + report +
                             " 2>$TMPDIR/error; test $? -ne 3; do :; done; cat $TMPDIR/error; wait";
    const outcome answered =
        run(serve + ">$TMPDIR/served & " + send + "; sed 's/^..:..:.. //' $TMPDIR/served");
    EXPECT_EQ(answered.output,
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Tessaron>"
              "<Server ID=\"M &amp; 1\" IPs=\"192.0.2.1 192.0.2.2\" TargetIqn=\"iqn.m\"/></Tessaron>\n"
              "listening on 0.0.0.0:9411\n"
              "127.0.0.1 command 32 origin 0: host h [192.0.2.7], disks 2\n");

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
