// A client of the daemon: connects over one of its sockets, sends a frame and reads the answer. All waiting
// has a limit, which the daemon's own functions for streams do not have.
#pragma once

#include "protocol/head.h"
#include "tests/support/eventually.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

constexpr int client_port = 7001; // of the daemon, unless a test says otherwise
constexpr char unix_socket_path[] = "/var/run/qelcd.sock";

// A connected socket; fd is -1 when nobody listened.
class peer {
public:
    explicit peer(int fd) : fd_(fd) {}
    ~peer();
    peer(peer &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    peer &operator=(peer &&) = delete;

    bool connected() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    // False when the daemon has closed the connection.
    bool send(std::string_view bytes) const;
    // Says that nothing more will be sent.
    void finish() const;

    struct received {
        std::string bytes;
        bool closed = false; // by the daemon; else the limit was reached
    };
    // All that comes until the daemon closes the connection.
    received receive(std::chrono::milliseconds limit = patience) const;

private:
    int fd_;
};

peer connect_tcp(const char *address = "127.0.0.1", int port = client_port);
peer connect_unix();

// A socket that occupies the port.
peer listen_tcp(int port);

message_head request_head(uint32_t cmd, size_t body_size = 0);
std::string frame(const message_head &head, std::string_view body = "");

struct reply {
    message_head head{};
    std::string body;
};

// The bytes as one whole frame; none when they are not exactly that.
std::optional<reply> parse_reply(const std::string &bytes);

// One exchange; none when there was no whole reply, followed by the end of the connection, within the limit.
std::optional<reply> ask(const peer &connection, const message_head &head, std::string_view body = "",
                         std::chrono::milliseconds limit = patience);
std::optional<reply> ask(uint32_t cmd, std::string_view body = ""); // over the UNIX socket

// True when the daemon answers a nop over both of its sockets.
bool is_serving();
