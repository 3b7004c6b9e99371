// The shipped daemon, started in the private host with the scripted platform libraries and tools of the
// test's own.
#pragma once

#include "tests/support/client.h"

#include <sys/types.h>

#include <string>
#include <vector>

constexpr char pid_file_path[] = "/var/run/qelcd.pid";
constexpr char config_file_path[] = "/etc/kavtessaron/qelcd.conf";

struct config_settings {
    std::string guid = "5e9d7f1a-0c3b-4f55-8a66-2d1f0e7b9c01";
    std::string alias = "test host";
    int port = client_port;
    std::vector<std::string> filter = {};
    std::string manager_guid = ""; // "": no manager
    std::vector<std::string> manager_ips = {};
    std::string more = ""; // elements of any kind
};

void write_config(const config_settings &settings = {});

class qelcd {
public:
    qelcd();
    ~qelcd();
    qelcd(const qelcd &) = delete;
    qelcd &operator=(const qelcd &) = delete;

    // The most descriptors that a process started from now on may have.
    void limit_descriptors(unsigned limit) { limits_ = "ulimit -n " + std::to_string(limit) + "; "; }

    // A program that the daemon finds before any other of that name.
    void tool(const std::string &name, const std::string &shell_script);

    // The embedded library of that name instead of the scripted one.
    void embed(const std::string &library);

    struct outcome {
        int status; // exit status as the shell sees it
        std::string output;
    };
    // Runs the program with these arguments until the process that the shell waits for has ended.
    outcome run(const std::vector<std::string> &arguments = {});

    // Runs it as a daemon and waits until it serves. A daemon that does not is a failure of the test.
    void start(const std::vector<std::string> &arguments = {});

    // From the PID file; 0 without one.
    static pid_t supervisor();
    // 0 while there is none.
    static pid_t worker();
    // Waits until another worker than FORMER serves. Fails the test when none does.
    static pid_t wait_for_new_worker(pid_t former);

    // Every process of the daemon, whosever child it is.
    static std::vector<pid_t> processes();
    // Waits until there is none; false when one stays.
    static bool wait_for_end()
    {
        return eventually([] { return processes().empty(); });
    }
    // Kills the supervisor, with which its worker must end too.
    static void stop();

private:
    std::vector<std::string> tools_;
    std::string limits_;
    std::string libraries_;
};

// The path of the program, which is built beside this one.
std::string qelcd_path();
