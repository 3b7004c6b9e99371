// The last heartbeat of this host. Its manager alone knows of that; so it is known here if the manager is the
// service of qelc-manager on the same host.
#pragma once

#include "tools/qelc/manager_view.h"

#include <ctime>
#include <optional>

struct heartbeat_view {
    time_t last = 0;      // 0: the service knows of none
    bool is_taken = true; // the service runs
};

// Null if nobody here can tell. Takes up to 10 seconds if the service hangs.
std::optional<heartbeat_view> find_heartbeat(const manager_view &manager);
