// The connection of one heartbeat to the manager.
#pragma once

#include "base/fd.h"
#include "client/client.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

// The sockets of one attempt to connect, one of which may be chosen.
struct manager_connection {
    static constexpr size_t most_addresses = 8;

    std::array<unique_fd, most_addresses> sockets;
    size_t count = 0;
    int chosen = -1; // one of the sockets, now blocking; -1: no connection

    manager_connection() = default;
    manager_connection(const manager_connection &) = delete;
    manager_connection &operator=(const manager_connection &) = delete;
    ~manager_connection();
};

// Tries the first eight of ADDRESSES at once, and chooses the first in their order that becomes writable
// within five seconds. A refused connection is writable, too; it fails when it is used. Returns 0, even if no
// address answers; -1 after a log line if a socket cannot be created. GUID is the manager's, for the log.
int connect_to_manager(manager_connection &connection, const std::list<qel_addr> &addresses, uint16_t port,
                       const std::string &guid);
