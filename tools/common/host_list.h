// The hosts that the service of qelc-manager on this host knows, for the commands that ask it.
#pragma once

#include "tools/common/known_host.h"
#include "tools/common/service_socket.h"

#include <vector>

struct host_list {
    std::vector<known_host> hosts;

    // 0, or the error number of the question; the hosts are those that the service knew at its end then.
    int failure = 0;
};

// With an ID only the host that has it. Takes up to 10 seconds if the service hangs.
host_list find_hosts(const std::string &folder, const std::string &id = "");

// True for a failure that means that no service runs.
bool is_service_missing(int failure);

// Where the service saves the list.
std::string hosts_path(const std::string &folder);

// The list as it was saved last. None if there is none.
std::optional<std::string> read_saved_hosts(const std::string &folder);
