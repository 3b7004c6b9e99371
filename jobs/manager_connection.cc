#include "jobs/manager_connection.h"

#include "base/log.h"
#include "client/addresses.h"
#include "protocol/stream.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
constexpr int connect_limit = 5000; // milliseconds

int bind_to_any_port(int fd)
{
    sockaddr_in local{};
    local.sin_family = AF_INET;
    return bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local);
}

// A new socket on its way to the manager. Returns 1 when it is there at once, 0 when it is not yet, -1 after
// a log line.
int start_connecting(manager_connection &connection, in_addr_t address, uint16_t port)
{
    const int fd = reused_sock();
    if (fd < 0) {
        log_error("Failed to socket()");
        return -1;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    connection.sockets[connection.count++] = fd;
    if (bind_to_any_port(fd) != 0) {
        log_error("Failed to bind port %d", 0);
        return -1;
    }
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_addr.s_addr = address;
    remote.sin_port = htons(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&remote), sizeof remote) == 0) {
        log_debug("Connection established with server.");
        connection.chosen = fd;
        return 1;
    }
    log_debug("poll ip: %s:%d", dotted(address).c_str(), port);
    return 0;
}

void wait_for_first_writable(manager_connection &connection, const std::string &guid)
{
    std::array<pollfd, manager_connection::most_addresses> entries{};
    for (size_t i = 0; i < connection.count; ++i)
        entries[i] = {.fd = connection.sockets[i], .events = POLLOUT, .revents = 0};
    log_debug("tid:%lu Blocked by poll() to send to Tessaron_Server", pthread_self());
    if (poll(entries.data(), connection.count, connect_limit) <= 0) {
        log_error("Failed to connect to manager '%s'", guid.c_str());
        return;
    }
    for (size_t i = 0; i < connection.count && connection.chosen < 0; ++i) {
        if (entries[i].revents & POLLOUT)
            connection.chosen = entries[i].fd;
    }
}

// The exchange blocks for as long as the manager takes. One whose host has gone without a word must not keep
// a thread for ever, so the kernel asks after it.
void prepare_for_exchange(int fd)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    const int on = 1;
    const int idle_seconds = 60;
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle_seconds, sizeof idle_seconds);
}
} // namespace

manager_connection::~manager_connection()
{
    for (size_t i = 0; i < count; ++i) {
        log_debug("close fd: %d", sockets[i]);
        close(sockets[i]);
    }
}

int connect_to_manager(manager_connection &connection, const std::list<qel_addr> &addresses, uint16_t port,
                       const std::string &guid)
{
    for (const qel_addr &address : addresses) {
        if (connection.chosen >= 0 || connection.count == manager_connection::most_addresses)
            break;
        if (start_connecting(connection, address.addr, port) < 0)
            return -1;
    }
    if (connection.chosen < 0)
        wait_for_first_writable(connection, guid);
    if (connection.chosen >= 0)
        prepare_for_exchange(connection.chosen);
    return 0;
}
