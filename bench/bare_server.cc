// The least that a server with a thread per connection can do: read 16 bytes, write 16 bytes, close. The
// daemon is measured against it.
//
//   bench-server TCP-PORT SOCKET-PATH [log]
//
// With "log" it also writes one line to the system log per request, as the daemon does, so that the cost of
// that line can be told from the rest.

#include "base/fd.h"
#include "base/thread.h"
#include "protocol/stream.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

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

void *accept_for_ever(void *fd_value)
{
    const int listener = static_cast<int>(reinterpret_cast<intptr_t>(fd_value));
    for (;;) {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        pthread_t thread;
        if (fd >= 0)
            start_thread(&thread, serve, reinterpret_cast<void *>(intptr_t{fd}));
    }
}

void *listen_on(int fd, const sockaddr *address, socklen_t length)
{
    constexpr int backlog = 512;
    if (bind(fd, address, length) != 0 || listen(fd, backlog) != 0) {
        perror("bench-server");
        exit(1);
    }
    return reinterpret_cast<void *>(intptr_t{fd});
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
    void *tcp_listener =
        listen_on(reused_sock().release(), reinterpret_cast<const sockaddr *>(&tcp), sizeof tcp);

    sockaddr_un local{};
    local.sun_family = AF_UNIX;
    strncpy(local.sun_path, argv[2], sizeof local.sun_path - 1);
    void *local_listener = listen_on(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0),
                                     reinterpret_cast<const sockaddr *>(&local), sizeof local);
    pthread_t thread;
    start_thread(&thread, accept_for_ever, tcp_listener);
    accept_for_ever(local_listener);
}
