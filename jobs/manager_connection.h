// The connection of one heartbeat to the manager.
#pragma once

#include "client/client.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

// The sockets of one attempt, of which one may have been chosen. Owns them all.
struct manager_connection {
    static constexpr size_t most_addresses = 8;

    std::array<int, most_addresses> sockets{};
    size_t count = 0;
    int chosen = -1; // one of the sockets, blocking again; -1: none

    manager_connection() = default;
    manager_connection(const manager_connection &) = delete;
    manager_connection &operator=(const manager_connection &) = delete;
    ~manager_connection();
};

// Tries all ADDRESSES at once, the first eight of them, and chooses the first in their order that has become
// writable within five seconds. A refused connection is writable, too: what became of it shows when it is
// used. Returns 0, also when none was chosen; -1 after a log line when a socket could not be made. GUID is
// the manager's, for the log.
int connect_to_manager(manager_connection &connection, const std::list<qel_addr> &addresses, uint16_t port,
                       const std::string &guid);
