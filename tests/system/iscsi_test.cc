// The iSCSI channel on a private host: its network interfaces, a tool that records how it is called, a
// made-up list of sessions.
#include "base/shell.h"
#include "iscsi/channel.h"
#include "iscsi/iface.h"
#include "iscsi/initiator.h"
#include "iscsi/node_record.h"
#include "requests/channels.h"
#include "tests/support/captured_log.h"
#include "tests/support/eventually.h"
#include "tests/support/files.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

namespace {
constexpr char iqn[] = "iqn.a:b";
const std::string ifaces = "/var/lib/iscsi/ifaces/", nodes = "/var/lib/iscsi/nodes/", tools = "/run/tools/";

// Writes down its arguments; fails if they contain the text of the file "refused", waits while there is
// "wait".
constexpr char recording_tool[] = R"sh(#!/bin/sh
printf '%s\n' "iscsiadm $*" >>/run/tools/calls
while [ -e /run/tools/wait ]; do sleep 0.01; done
[ ! -e /run/tools/refused ] || ! printf '%s\n' "$*" | grep -qFe "$(cat /run/tools/refused)"
)sh";

void refuse(const std::string &text)
{
    write_file(tools + "refused", text);
}

// What the tool wrote down since the last call.
std::string take_calls()
{
    std::string calls = read_file(tools + "calls");
    fs::remove(tools + "calls");
    return calls;
}

std::string names_in(const std::string &folder)
{
    return output_of("LC_ALL=C ls -A " + folder + " | tr '\\n' ' '");
}

qel_iscsi_node node(const optional_text &name, const char *ip = "0.0.0.0", uint16_t port = 0)
{
    return {.iqn = name, .ip = inet_addr(ip), .port = htons(port)};
}

// A host with one interface beside the loopback one, which it keeps: one test a process.
class iscsi : public testing::Test {
protected:
    iscsi()
    {
        g_client = &client;
        fs::create_directories(tools);
        write_file("/usr/local/sbin/iscsiadm", recording_tool);
        fs::permissions("/usr/local/sbin/iscsiadm", fs::perms::owner_all);
        fs::create_directories(ifaces);
        fs::create_directories(nodes + iqn);
        add_interface("net0", {"192.0.2.7"});
        take_log();
    }

    const qel_iscsi_node target = node(iqn, "10.0.0.5", 3261), nobody = node(std::nullopt);
    const qel_iscsi_node here = node(std::nullopt, "192.0.2.7");
    const qel_iscsi_node elsewhere = node(std::nullopt, "203.0.113.1"); // an address of no interface
    qel_t client;
};
} // namespace

TEST_F(iscsi, CommandLinesSayWhatIsKnown)
{
    const qel_iscsi_node nowhere = node(iqn, "255.255.255.255", 3261);
    using operation = int (*)(const qel_iscsi_node *, const qel_iscsi_node *);
    const operation login = qel_iscsi_login_channel, logout = qel_iscsi_logout_channel,
                    discover = qel_iscsi_discover_target;
    const struct {
        operation run;
        const qel_iscsi_node &target, &initiator;
        std::string line;
    } cases[] = {
        {login, target, here, "node -p 10.0.0.5:3261 -T iqn.a:b -I qel_iface_net0 -l"},
        {logout, target, here, "node 10.0.0.5:3261 -T iqn.a:b -I qel_iface_net0 -u"},
        {login, nowhere, nobody, "node -T iqn.a:b -l"},
        {logout, nowhere, here, "node -T iqn.a:b -I qel_iface_net0 -u"},
        {logout, nobody, nobody, "node -u"},
        {discover, target, nobody, "discovery -t st -p 10.0.0.5:3261"},
        {discover, target, here, "discovery -t st -p 10.0.0.5:3261 -I qel_iface_net0"},
    };
    for (const auto &one : cases) {
        const std::string line = "iscsiadm -m " + one.line;
        EXPECT_EQ(one.run(&one.target, &one.initiator), 0) << line;
        EXPECT_EQ(take_calls(), line + "\n");
    }
    refuse("-m");
    take_log();
    for (const size_t at : {0U, 1U, 6U}) {
        EXPECT_EQ(cases[at].run(&target, &here), -1);
        EXPECT_EQ(take_log(),
                  "3 Failed to execute cmd: 'iscsiadm -m " + cases[at].line + "' error: 'Success'\n");
    }
    take_calls();
    EXPECT_EQ(qel_iscsi_discover_target(&nowhere, &here), -1) << "there is nobody to ask";
    EXPECT_EQ(take_calls(), "");
}

TEST_F(iscsi, NamesReachTheToolUnchangedOrNotAtAll)
{
    const std::string plain = "iqn.x:%s%n@_=+,-" + std::string(3000, 'x') + "\xc3\xa9";
    const qel_iscsi_node kept = node(plain);
    EXPECT_EQ(qel_iscsi_login_channel(&kept, &nobody), 0);
    EXPECT_EQ(take_calls(), "iscsiadm -m node -T " + plain + " -l\n");
    for (const std::string name : {"$(touch /run/tools/x)", "a;b", "a b", "a -u", "a\nb", "", "`a`", "a*",
                                   "~", "-u", "--op=new", "/run/x", "a/../b"}) {
        const qel_iscsi_node refused = node(name);
        take_log();
        EXPECT_EQ(qel_iscsi_login_channel(&refused, &nobody), -1);
        EXPECT_EQ(take_log(), "3 Failed to execute cmd: 'iscsiadm -m node -T " + name +
                                  " -l' error: 'Invalid argument'\n");
        EXPECT_EQ(take_calls(), "") << name;
    }
    EXPECT_EQ(names_in(tools), "");
}

TEST_F(iscsi, PlainWordsAreThoseThatEveryShellTakesLiterally)
{
    std::string command = "printf '[%s]'", printed;
    for (int byte = 1; byte < 256; byte++) {
        const std::string one(1, static_cast<char>(byte));
        for (const std::string &word : {one + "x", "x" + one + "x", "x" + one}) {
            if (is_plain_word(word)) {
                command += " " + word;
                printed += "[" + word + "]";
            }
        }
    }
    write_file(tools + "words", command + "\n");
    for (const char *shell : {"dash ", "bash ", "bash --posix "})
        EXPECT_EQ(output_of(shell + tools + "words"), printed) << shell;
    for (const char *refused : {"", " true", "true ", "true  x", "true;true", "true\n"})
        EXPECT_EQ(shell_run(refused), -1) << refused;
    EXPECT_EQ(shell_run("true"), 0);
}

TEST_F(iscsi, IfaceRecordBindsToTheInterfaceOfTheAddressAndIsWrittenWhole)
{
    const std::string record = ifaces + "qel_iface_net0";
    optional_text name;
    EXPECT_EQ(check_before_operate(&name, &here), 0);
    EXPECT_EQ(name, "qel_iface_net0");
    EXPECT_EQ(
        read_file(record),
        "iface.net_ifacename = net0\niface.iscsi_ifacename = qel_iface_net0\niface.transport_name = tcp\n"
        "iface.vlan_id = 0\niface.vlan_priority = 0\niface.iface_num = 0\niface.mtu = 0\niface.port = 0\n");
    write_file(record, "as the administrator wants it");
    EXPECT_EQ(check_before_operate(&name, &here), 0);
    EXPECT_EQ(read_file(record), "as the administrator wants it");
    EXPECT_EQ(check_before_operate(&name, &elsewhere), 0);
    EXPECT_EQ(name, "qel_iface_");
    EXPECT_EQ(names_in(ifaces), "qel_iface_ qel_iface_net0 ") << "no temporary file";
    EXPECT_EQ(check_before_operate(&name, &nobody), 0);
    EXPECT_FALSE(name) << "without address nothing is bound";

    output_of("ip address add 192.0.2.9/24 dev net0 label net0:/../../x");
    const qel_iscsi_node labelled = node(std::nullopt, "192.0.2.9");
    EXPECT_EQ(check_before_operate(&name, &labelled), -1) << "a label that leads out of the folder";
    fs::remove(record);
    fs::create_symlink("/dev/full", ifaces + "qel_iface.back");
    EXPECT_EQ(_creat_iface(&here), -1);
    EXPECT_EQ(names_in(ifaces), "qel_iface.back qel_iface_ ");
    fs::remove_all(ifaces);
    EXPECT_EQ(_creat_iface(&here), -1);
    EXPECT_EQ(remove_iscsi_iface(), -1);
}

TEST_F(iscsi, IfaceRecordsThatAreWrittenAtTheSameMomentAreNotMixed)
{
    const qel_iscsi_node nodes_of_both[] = {here, elsewhere};
    const std::string names[] = {"qel_iface_net0", "qel_iface_"};
    int failures[] = {0, 0};
    {
        std::vector<std::jthread> writers;
        for (const size_t i : {0U, 1U})
            writers.emplace_back([&, i] {
                for (int round = 0; round < 1000; round++) {
                    fs::remove(ifaces + names[i]);
                    const bool written = _creat_iface(&nodes_of_both[i]) == 0;
                    const std::string text = read_file(ifaces + names[i]);
                    failures[i] += !written || text.find("iscsi_ifacename = " + names[i] + "\n") == text.npos;
                }
            });
    }
    EXPECT_EQ(failures[0] + failures[1], 0);
}

TEST_F(iscsi, DiscoveryLeavesTheRecordsOfItsPortalAlone)
{
    write_file(tools + "canary/file", "alive");
    for (const char *portal : {"10.0.0.5,3260,1", "10.0.0.50,3260,1", "10.0.0.6,3260,1", "110.0.0.5,3260,1"})
        write_file(nodes + iqn + "/" + portal + "/default", "settings");
    for (const char *link : {"/10.0.0.6,3260,1/link", "/link"})
        fs::create_directory_symlink(tools + "canary", nodes + iqn + link);
    const std::string all = names_in(nodes + iqn);
    refuse("discovery");
    EXPECT_EQ(qel_iscsi_discover_login(&target, &nobody), -1);
    EXPECT_EQ(names_in(nodes + iqn), all) << "after a discovery that failed";
    refuse("-l");
    EXPECT_EQ(qel_iscsi_discover_login(&target, &nobody), -1);
    EXPECT_EQ(names_in(nodes + iqn), "10.0.0.5,3260,1 10.0.0.50,3260,1 ");
    EXPECT_EQ(read_file(tools + "canary/file"), "alive") << "a link is not followed";
}

TEST_F(iscsi, CancellingRemovesTheRecordsOfThatTargetOnly)
{
    for (const char *name : {"qel_iface_net0", "qel_iface_", "qel_iface.back", "default", "my_qel_iface_"})
        write_file(ifaces + name, "");
    write_file(nodes + iqn + "/10.0.0.5,3260,1/default", "");
    write_file(nodes + "iqn.other/10.0.0.5,3260,1/default", "");
    refuse(iqn);
    EXPECT_EQ(qel_cancel_iscsi_channel_all(iqn), -1);
    EXPECT_EQ(names_in(nodes), "iqn.a:b iqn.other ") << "sessions still need their records";
    fs::remove(tools + "refused");
    take_calls();
    EXPECT_EQ(qel_cancel_iscsi_channel_all(iqn), 0);
    EXPECT_EQ(take_calls(), "iscsiadm -m node -T iqn.a:b -u\n");
    EXPECT_EQ(names_in(ifaces), "default my_qel_iface_ qel_iface.back ");
    for (const char *name : {"..", ".", "", "iqn.other/10.0.0.5,3260,1", "../ifaces", "/run", "iqn.a:b"}) {
        EXPECT_EQ(remove_iscsi_node_record(name, "10.9.9.9"), -1) << name;
        EXPECT_EQ(qel_remove_channel_file(name), -1) << name;
    }
    EXPECT_EQ(names_in(ifaces + " " + nodes + "iqn.other"),
              ifaces + ": default my_qel_iface_ qel_iface.back  " + nodes + "iqn.other: 10.0.0.5,3260,1 ");
}

TEST_F(iscsi, SessionCountsWhenTargetAndInterfaceMatch)
{
    const fake_folder classes("/sys/class");
    EXPECT_EQ(qel_iscsi_channel_exist(&target, &here), 0);
    EXPECT_EQ(take_log(), "3 Failed to scandir(/sys/class/iscsi_session)\n");
    const std::string sessions = "/sys/class/iscsi_session/";
    fs::create_directories(sessions + "session1"); // just going: its files are gone already
    write_file(sessions + "session2/targetname", "iqn.a:b\n");
    write_file(sessions + "session2/ifacename", "qel_iface_net0\n");
    write_file(sessions + ".session9/targetname", "iqn.hidden\n");
    EXPECT_EQ(qel_iscsi_channel_exist(&target, &here), 1);
    EXPECT_EQ(qel_iscsi_channel_exist(&target, &nobody), 1) << "bound to any interface";
    EXPECT_EQ(qel_iscsi_channel_exist(&target, &elsewhere), 0);
    for (const qel_iscsi_node &stranger : {node("iqn.a"), node("iqn.hidden"), nobody})
        EXPECT_EQ(qel_iscsi_channel_exist(&stranger, &here), 0) << stranger.iqn.value_or("none");
}

TEST_F(iscsi, EveryAddressOfTheHostIsTriedThatIsNotFiltered)
{
    output_of("ip address add 192.0.2.8/24 dev net0");
    client.filter_list.push_back({inet_addr("192.0.2.8")});
    add_interface("net1", {"198.51.100.7"});
    const std::string discovery = "iscsiadm -m discovery -t st -p 10.0.0.5:3261 -I qel_iface_net0\n",
                      login = "iscsiadm -m node -p 10.0.0.5:3261 -T iqn.a:b -I qel_iface_net0 -l\n";
    const auto on_net1 = [](std::string call) { return call.replace(call.find("net0"), 4, "net1"); };
    EXPECT_EQ(qel_establish_iscsi_channel_auto(&target), 0);
    EXPECT_EQ(take_calls(), discovery + login + on_net1(discovery) + on_net1(login));
    refuse("qel_iface_net1 -l");
    EXPECT_EQ(qel_establish_iscsi_channel_auto(&target), 0) << "one of two";
    refuse("discovery");
    EXPECT_EQ(qel_establish_iscsi_channel_auto(&target), -1);
}

TEST_F(iscsi, ChannelToTheManagerIsSetUpAgainUnderTheRecordsLock)
{
    const fake_folder classes("/sys/class");
    EXPECT_EQ(qel_is_iscsi_channel_login(), -1) << "no manager";
    client.manager = std::make_unique<qel_manager>();
    client.manager->ip_list = {{inet_addr("10.0.0.5")}, {inet_addr("10.0.0.6")}, {inet_addr("10.0.0.7")}};
    EXPECT_EQ(qel_is_iscsi_channel_login(), -1) << "no target";
    client.manager->target_iqn = iqn;
    write_file("/sys/class/iscsi_session/session1/targetname", "iqn.a:b\n");
    EXPECT_EQ(qel_is_iscsi_channel_login(), -1);
    EXPECT_EQ(take_calls(), "") << "a session that stands is left alone";

    fs::remove_all("/sys/class/iscsi_session/session1");
    refuse("10.0.0.5");
    write_file(tools + "wait", "");
    std::jthread caller([] { EXPECT_EQ(qel_is_iscsi_channel_login(), 0); });
    EXPECT_TRUE(eventually([] { return !read_file(tools + "calls").empty(); }));
    const std::unique_lock held(client.lock, std::try_to_lock);
    EXPECT_FALSE(held) << "while the tool runs";
    fs::remove(tools + "wait");
    caller.join();
    const std::string calls = take_calls();
    EXPECT_NE(calls.find("10.0.0.6"), std::string::npos) << calls;
    EXPECT_EQ(calls.find("10.0.0.7"), std::string::npos) << "one is enough";
}
