// The two listening sockets of the working process, and the loop that hands out connections.
#pragma once

constexpr char local_socket_path[] = "/var/run/qelcd.sock";

struct listeners {
    int tcp = -1;
    int local = -1;
};

// Opens the TCP listener on PORT of every local address, then the UNIX listener. Returns 0, or -1 after a log
// line; what was opened by then is in L.
int open_listeners(listeners &l, int port);

void close_listeners(listeners &l);

// Serves each connection on a thread of its own. Returns only when memory for a connection runs out.
void accept_connections(const listeners &l);
