// The least that a server with a thread per connection can do: read 16 bytes, write 16 bytes, close. The
// daemon is measured against it.
//
//   bench-server TCP-PORT SOCKET-PATH [log [select]]
//
// With "log" it also writes one line to the system log per request, and with "select" one thread waits for
// both sockets, both as the daemon has to, so that what these cost can be told from the rest.

#include "base/fd.h"
#include "base/thread.h"
#include "protocol/stream.h"

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
bool logs = false;

void *serve(void *fd_value)
{
    const unique_fd fd(static_cast<int>(reinterpret_cast<intptr_t>(fd_value)));
    pthread_detach(pthread_self());
    char frame[16];
    if (read(fd.get(), frame, sizeof frame) == sizeof frame) {
        if (logs)
            syslog(LOG_INFO, "Received command code: %u.\n", 57U);
        if (write(fd.get(), frame, sizeof frame) < 0)
            perror("write");
    }
    return nullptr;
}

void accept_one(int listener)
{
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    pthread_t thread;
    if (fd >= 0)
        start_thread(&thread, serve, reinterpret_cast<void *>(intptr_t{fd}));
}

void *accept_for_ever(void *fd_value)
{
    for (;;)
        accept_one(static_cast<int>(reinterpret_cast<intptr_t>(fd_value)));
}

void select_for_ever(int one, int other)
{
    for (;;) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(one, &ready);
        FD_SET(other, &ready);
        select(std::max(one, other) + 1, &ready, nullptr, nullptr, nullptr);
        for (const int listener : {one, other}) {
            if (FD_ISSET(listener, &ready))
                accept_one(listener);
        }
    }
}

int listen_on(int fd, const sockaddr *address, socklen_t length)
{
    constexpr int backlog = 512;
    if (bind(fd, address, length) != 0 || listen(fd, backlog) != 0) {
        perror("bench-server");
        exit(1);
    }
    return fd;
}
} // namespace

int main(int argc, char **argv)
{
    if (argc < 3)
        return 2;
    logs = argc > 3;
    signal(SIGPIPE, SIG_IGN);
    sockaddr_in tcp{};
    tcp.sin_family = AF_INET;
    tcp.sin_port = htons(static_cast<uint16_t>(atoi(argv[1])));
    // The listeners are open for the life of the process.
    const int tcp_listener =
        listen_on(reused_sock().release(), reinterpret_cast<const sockaddr *>(&tcp), sizeof tcp);

    sockaddr_un local{};
    local.sun_family = AF_UNIX;
    strncpy(local.sun_path, argv[2], sizeof local.sun_path - 1);
    const int local_listener = listen_on(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0),
                                         reinterpret_cast<const sockaddr *>(&local), sizeof local);
    if (argc > 4)
        select_for_ever(tcp_listener, local_listener);
    pthread_t thread;
    start_thread(&thread, accept_for_ever, reinterpret_cast<void *>(intptr_t{tcp_listener}));
    accept_for_ever(reinterpret_cast<void *>(intptr_t{local_listener}));
}
