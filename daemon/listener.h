// The two listening sockets of the working process, and the loop that accepts connections.
#pragma once

#include "base/fd.h"

constexpr char local_socket_path[] = "/var/run/qelcd.sock";

struct listeners {
    unique_fd tcp;
    unique_fd local;
};

// Opens the TCP listener on PORT of every local address, then the UNIX listener. Returns 0, or -1 after a log
// line; L may then have sockets to close.
int open_listeners(listeners &l, int port);

void close_listeners(listeners &l);

// Serves each connection on a thread of its own. Returns only when out of memory.
void accept_connections(const listeners &l);
