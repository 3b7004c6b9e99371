#include "jobs/manager_connection.h"

#include "base/log.h"
#include "client/addresses.h"
#include "protocol/stream.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

namespace {
constexpr int connect_limit = 5000; // milliseconds

int bind_to_any_port(int fd)
{
    sockaddr_in local{};
    local.sin_family = AF_INET;
    return bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local);
}

// Starts connecting a new socket to the manager. Returns 1 if it is connected at once, 0 if not yet, -1 after
// a log line.
int start_connecting(manager_connection &connection, in_addr_t address, uint16_t port)
{
    unique_fd &fresh = connection.sockets[connection.count];
    fresh = reused_sock();
    if (!fresh.is_open()) {
        log_error("Failed to socket()");
        return -1;
    }
    ++connection.count;
    const int fd = fresh.get();
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
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
        entries[i] = {.fd = connection.sockets[i].get(), .events = POLLOUT, .revents = 0};
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

// The exchange blocks for as long as the manager takes. Keep-alive ends it if the manager's host has
// disappeared, so that the thread does not wait for ever.
void prepare_for_exchange(int fd)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    keep_alive(fd);
}
} // namespace

manager_connection::~manager_connection()
{
    for (size_t i = 0; i < count; ++i) {
        log_debug("close fd: %d", sockets[i].get());
        sockets[i].reset(); // in order, each after its log line
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
