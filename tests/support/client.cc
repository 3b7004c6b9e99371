#include "tests/support/client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {
peer connect_to(const sockaddr *address, socklen_t size)
{
    const int fd = socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, address, size) != 0) {
        close(fd);
        return peer(-1);
    }
    return peer(fd);
}

// One line, written at once: tests that run side by side share the file.
void note_status(const message_head &request, const message_head &answer)
{
    const char *record = getenv("QELCD_STATUS_RECORD");
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    if (!record || !test)
        return;
    std::ofstream(record, std::ios::app) << std::to_string(request.cmd) + " " + std::to_string(answer.ret) +
                                                " " + test->test_suite_name() + "." + test->name() + "\n";
}
} // namespace

peer::~peer()
{
    if (fd_ >= 0)
        close(fd_);
}

bool peer::send(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t count = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
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
        if (count <= 0) {
            all.closed = true; // a reset is an end too: of a worker that died with bytes unread
            return all;
        }
        all.bytes.append(block, static_cast<size_t>(count));
    }
}

peer connect_tcp(const char *address, int port)
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &to.sin_addr);
    return connect_to(reinterpret_cast<sockaddr *>(&to), sizeof to);
}

peer connect_unix()
{
    sockaddr_un to{.sun_family = AF_UNIX, .sun_path = {}};
    memcpy(to.sun_path, unix_socket_path, sizeof unix_socket_path);
    return connect_to(reinterpret_cast<sockaddr *>(&to), sizeof to);
}

peer listen_tcp(int port)
{
    peer listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1; // or connections that have just ended would be in the way
    setsockopt(listener.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(static_cast<uint16_t>(port));
    const bool bound = bind(listener.fd(), reinterpret_cast<sockaddr *>(&at), sizeof at) == 0;
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
    std::string bytes(sizeof head, '\0');
    memcpy(bytes.data(), &head, sizeof head);
    return bytes.append(body);
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
    const std::optional<reply> answer = received.closed ? parse_reply(received.bytes) : std::nullopt;
    if (answer)
        note_status(head, answer->head);
    return answer;
}

std::optional<reply> ask(uint32_t cmd, std::string_view body)
{
    return ask(connect_unix(), request_head(cmd, body.size()), body);
}

bool is_serving()
{
    const auto nop = request_head(57);
    return ask(connect_tcp(), nop).has_value() && ask(connect_unix(), nop).has_value();
}
