#include "daemon/listener.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/thread.h"
#include "client/client.h"
#include "daemon/process_cmd.h"
#include "protocol/stream.h"

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

namespace {
constexpr int backlog = 512;
constexpr unsigned exhausted_pause_ms = 100;

// A working process that was killed may leave a child that has not become the tool yet that it is to run.
// Until then it has the port open, too.
int bind_patiently(int fd, const sockaddr *address, socklen_t length)
{
    constexpr unsigned patience_ms = 5000;
    constexpr unsigned pause_ms = 50;
    for (unsigned waited = 0;; waited += pause_ms) {
        if (bind(fd, address, length) == 0)
            return 0;
        if (errno != EADDRINUSE || address->sa_family != AF_INET || waited >= patience_ms)
            return -1;
        clock_sleep_ms(pause_ms);
    }
}

int bind_and_listen(int fd, const sockaddr *address, socklen_t length)
{
    if (bind_patiently(fd, address, length) != 0) {
        log_error("Failed to bind (%s)", strerror(errno));
        return -1;
    }
    if (listen(fd, backlog) != 0) {
        log_error("Failed to listen (%s)", strerror(errno));
        return -1;
    }
    return 0;
}

int open_tcp(listeners &l, int port)
{
    l.tcp = reused_sock();
    if (!l.tcp.is_open()) {
        log_error("Failed to socket()");
        return -1;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind_and_listen(l.tcp.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

int open_local(listeners &l)
{
    unlink(local_socket_path); // a socket file that an earlier process left
    l.local.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!l.local.is_open()) {
        log_error("Failed to socket()");
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static_assert(sizeof local_socket_path <= sizeof address.sun_path);
    memcpy(address.sun_path, local_socket_path, sizeof local_socket_path);
    return bind_and_listen(l.local.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

// Whether the connection arrived on a local address that the filter names.
bool is_filtered(int fd)
{
    if (g_client->filter_list.empty())
        return false;
    sockaddr_in local{};
    socklen_t length = sizeof local;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length) != 0 || local.sin_family != AF_INET)
        return false;
    return std::any_of(g_client->filter_list.begin(), g_client->filter_list.end(),
                       [&](const qel_addr &entry) { return entry.addr == local.sin_addr.s_addr; });
}

// Accepts one connection from a socket that is ready, the TCP one first.
unique_fd accept_next(const listeners &l)
{
    fd_set ready;
    FD_ZERO(&ready);
    const int tcp = l.tcp.get();
    const int local = l.local.get();
    FD_SET(tcp, &ready);
    FD_SET(local, &ready);
    select(std::max(tcp, local) + 1, &ready, nullptr, nullptr, nullptr);
    return unique_fd(accept4(FD_ISSET(tcp, &ready) ? tcp : local, nullptr, nullptr, SOCK_CLOEXEC));
}

void report_failed_accept()
{
    if (errno == EINTR) {
        log_debug("Accept is interrupted");
        return;
    }
    log_error("Failed to accept socket (%s)", strerror(errno));
    // Without descriptors or memory the connection stays in the queue, and select would return at once.
    clock_sleep_ms(exhausted_pause_ms);
}
} // namespace

int open_listeners(listeners &l, int port)
{
    return open_tcp(l, port) == 0 && open_local(l) == 0 ? 0 : -1;
}

void close_listeners(listeners &l)
{
    l.tcp.reset();
    l.local.reset();
}

void accept_connections(const listeners &l)
{
    for (;;) {
        std::unique_ptr<int> cell(new (std::nothrow) int(-1));
        if (!cell) {
            log_error("Failed to allocate memory");
            return;
        }
        unique_fd fd = accept_next(l);
        if (!fd.is_open()) {
            report_failed_accept();
        } else if (!is_filtered(fd.get())) {
            *cell = fd.release(); // the thread closes it; if none can be started, the connection stays open
            pthread_t thread;
            start_thread(&thread, process_cmd, cell.release());
        }
    }
}
