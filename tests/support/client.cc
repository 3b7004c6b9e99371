#include "tests/support/client.h"

#include "protocol/commands.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {
template <class Address>
peer connect_to(const Address &address)
{
    const auto *to = reinterpret_cast<const sockaddr *>(&address);
    peer made(socket(to->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return connect(made.fd(), to, sizeof address) == 0 ? std::move(made) : peer(-1);
}

sockaddr_in tcp_address(const char *address, int port)
{
    return {.sin_family = AF_INET,
            .sin_port = htons(static_cast<uint16_t>(port)),
            .sin_addr = {inet_addr(address)},
            .sin_zero = {}};
}
} // namespace

peer::~peer()
{
    if (fd_ >= 0)
        close(fd_);
}

bool peer::send(std::string_view bytes) const
{
    // The kernel takes all of it, or the connection ends.
    return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

void peer::finish() const
{
    shutdown(fd_, SHUT_WR);
}

peer::received peer::receive(std::chrono::milliseconds limit) const
{
    received all;
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd wait{.fd = fd_, .events = POLLIN, .revents = 0};
        if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) <= 0)
            return all;
        char block[16 * 1024];
        const ssize_t count = recv(fd_, block, sizeof block, 0);
        if (count <= 0)
            return {all.bytes, true}; // a reset is an end too: of a worker that died with bytes unread
        all.bytes.append(block, static_cast<size_t>(count));
    }
}

peer connect_tcp(const char *address, int port)
{
    return connect_to(tcp_address(address, port));
}

peer connect_unix()
{
    sockaddr_un to{.sun_family = AF_UNIX, .sun_path = {}};
    memcpy(to.sun_path, unix_socket_path, sizeof unix_socket_path);
    return connect_to(to);
}

peer listen_tcp(int port)
{
    peer listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1; // or connections that have just ended would be in the way
    setsockopt(listener.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in at = tcp_address("0.0.0.0", port);
    const bool bound = bind(listener.fd(), reinterpret_cast<const sockaddr *>(&at), sizeof at) == 0;
    return bound && listen(listener.fd(), 1) == 0 ? std::move(listener) : peer(-1);
}

message_head request_head(uint32_t cmd, size_t body_size)
{
    message_head head{};
    head.version = protocol_version;
    head.cmd = cmd;
    head.data_len = static_cast<uint32_t>(body_size);
    return head;
}

std::string frame(const message_head &head, std::string_view body)
{
    return std::string(reinterpret_cast<const char *>(&head), sizeof head).append(body);
}

std::optional<reply> parse_reply(const std::string &bytes)
{
    reply result;
    if (bytes.size() < sizeof result.head)
        return std::nullopt;
    memcpy(&result.head, bytes.data(), sizeof result.head);
    result.body = bytes.substr(sizeof result.head);
    return result.body.size() == result.head.data_len ? std::optional(result) : std::nullopt;
}

std::optional<reply> ask(const peer &connection, const message_head &head, std::string_view body,
                         std::chrono::milliseconds limit)
{
    if (!connection.connected() || !connection.send(frame(head, body)))
        return std::nullopt;
    const auto received = connection.receive(limit);
    return received.closed ? parse_reply(received.bytes) : std::nullopt;
}

std::optional<reply> ask(uint32_t cmd, std::string_view body)
{
    return ask(connect_unix(), request_head(cmd, body.size()), body);
}

bool is_serving()
{
    const auto nop = request_head(command::nop_command);
    return ask(connect_tcp(), nop).has_value() && ask(connect_unix(), nop).has_value();
}
