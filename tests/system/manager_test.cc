// The manager as a service: what it knows of hosts, over its own end, and hosts that it lets go.

#include "tests/support/system_test.h"

#include <csignal>
#include <filesystem>

using namespace std::chrono_literals;

namespace {
constexpr int port = client_port + 1;
constexpr char state[] = "/var/tmp/state";

std::string program()
{
    const std::string daemon = qelcd_path();
    return daemon.substr(0, daemon.rfind('/')) + "/standin-manager ";
}

std::string manager(const std::string &words, const std::string &filter = "cat")
{
    return output_of("{ " + program() + words + "; } 2>&1 | " + filter);
}

std::string hosts(const std::string &filter = "cat")
{
    return manager("hosts --state " + std::string(state), filter);
}

class service : public system_test {
protected:
    service() { std::filesystem::remove_all(state); }
    ~service() override { end(); }

    void begin()
    {
        pid_ = stoi(output_of(program() + "--guid M --state " + state + " --port " + std::to_string(port) +
                              " >>/var/tmp/served 2>&1 & echo $!"));
        EXPECT_TRUE(eventually([] { return hosts().find("does not run") == std::string::npos; }));
    }

    void end(int signal = SIGTERM) const
    {
        kill(pid_, signal);
        EXPECT_TRUE(eventually([&] { return !is_alive(pid_); }));
    }

    static bool tells(const std::string &line)
    {
        return eventually([&] { return read_file("/var/tmp/served").find(line) != std::string::npos; });
    }

private:
    pid_t pid_ = 0;
};

// A report with mirrors in these states; the status of its answer.
int report(const std::string &name, const std::string &id, const std::string &states)
{
    std::string mirrors;
    for (const char one : states)
        mirrors += filled(R"(<Backup SrcName="sd%" SrcGUID="G%" State="%" Percent="43"/>)", one, one, one);
    const std::string text = in_root(
        filled(R"(<Client HostName="%" ID="%" IPs="10.0.0.1 10.0.0.2"><BackupList>%</BackupList></Client>)",
               name, id, mirrors));
    const auto answer = ask(connect_tcp("127.0.0.1", port), request_head(32, text.size()), text);
    return answer ? answer->head.ret : -1;
}
} // namespace

TEST_F(service, ListsHostsTheWorstFirstAlsoAfterItsOwnEnd)
{
    begin();
    EXPECT_EQ(hosts(), "no hosts\n");
    for (const auto &[name, id, states] : {std::tuple{"level", "A", "00"},
                                           {"down", "B", "0254"},
                                           {"copies", "C", "20"},
                                           {"bare", "D", ""},
                                           {"a\xc2\x9b\x33", "", "9"}})
        EXPECT_EQ(report(name, id, states), 0);
    EXPECT_TRUE(tells("down [127.0.0.1]: reports; sd5: mirror down\n"));
    const std::string listed = "  Host    Address    Heartbeat  Mirrors  Worst mirror\n"
                               "  a?3     127.0.0.1  N          1        sd9: state 9\n"
                               "  down    127.0.0.1  N          4        sd5: mirror down\n"
                               "  copies  127.0.0.1  N          2        sd2: synchronising, 43 %\n"
                               "  level   127.0.0.1  N          2        sd0: synchronised\n"
                               "  bare    127.0.0.1  N          0        -\n";
    const std::string ages = "sed -E 's/  (now|[0-9]+ s ago) +/  N          /'";
    EXPECT_EQ(hosts(ages), listed);
    end();
    EXPECT_EQ(hosts(ages),
              listed + "standin-manager: /var/tmp/state: the service does not run; this is what it knew "
                       "at its end\nhint: to start it: systemctl enable --now qelc-manager\n");
    begin();
    EXPECT_EQ(hosts(ages), listed);
    EXPECT_EQ(report("down", "B", "0000"), 0);
    EXPECT_TRUE(tells("down [127.0.0.1]: sd0: synchronised; before: sd5: mirror down\n"));
    const std::string forget = "forget --state " + std::string(state) + " ";
    EXPECT_EQ(manager(forget + "10.0.0.1"),
              "standin-manager: 10.0.0.1: 5 hosts are called so; take the ID\n");
    for (const char *name : {"copies", "A", "bare", "B"})
        EXPECT_EQ(manager(forget + name), "forgot " + std::string(name) + "\n");
    EXPECT_EQ(hosts("wc -l"), "2\n");
    end(SIGKILL);
    write_file(std::string(state) + "/hosts", "{\"hosts\":[{\"id\":1");
    begin();
    EXPECT_TRUE(tells("/hosts: is no list of hosts; it is put beside as /var/tmp/state/hosts.unusable\n"));
    EXPECT_EQ(hosts(), "no hosts\n");
}

TEST_F(service, HostsThatAreSilentAreToldAndComeFirst)
{
    const std::string old = std::to_string(time(nullptr) - 7200);
    output_of("mkdir /var/tmp/state");
    write_file(
        std::string(state) + "/hosts",
        filled(
            R"({"hosts":[{"id":"A","name":"silent","address":"10.0.0.9","ips":"","first":%,"last":%,"mirrors":0}]})",
            old, old));
    begin();
    EXPECT_EQ(report("here", "B", "5"), 0);
    EXPECT_EQ(hosts("sed -E '1d; s/  (now|[0-9]+ s ago) .*/  N/; s/(, silent) .*/\\1/'"),
              "  silent  10.0.0.9   2 h ago, silent\n  here    127.0.0.1  N\n");
    const std::string script =
        "import json, sys; a, b = json.load(sys.stdin)['results'];"
        "print(a['silent'], a['age'] // 60, a['worst_mirror'], b['silent'], b['worst_mirror'])";
    EXPECT_EQ(manager("hosts --json --state " + std::string(state), "python3 -c \"" + script + "\""),
              "True 120 None False {'disk': 'sd5', 'guid': 'G5', 'state': 'mirror down'}\n");
    EXPECT_EQ(report("silent", "A", ""), 0);
    EXPECT_EQ(hosts("sed -n /silent,/p"), "");
}

// It asks for no ID, unlike the command that releases others.
TEST_F(service, AHostWithoutAnIdIsReleasedByTheAnswerToItsHeartbeat)
{
    write_config({.guid = ""});
    daemon.start();
    log.tolerate("*");
    const std::string host = " 127.0.0.1:" + std::to_string(client_port);
    const std::string release = "release --guid M --state " + std::string(state) + host;
    EXPECT_NE(manager("adopt --guid M" + host).find("HostName"), std::string::npos);
    EXPECT_NE(manager(release).find("only the service can release it"), std::string::npos);
    begin();
    EXPECT_TRUE(tells("private-host [127.0.0.1]: reports; no mirrors\n"));
    EXPECT_EQ(manager(release), "released" + host + "\n");
    EXPECT_EQ(hosts(), "no hosts\n");
    EXPECT_NE(manager("scan" + host).find("HostName"), std::string::npos) << "nobody has adopted it";
}
