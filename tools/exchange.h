// What the command-line tools share: finding a peer, one framed exchange with it, and texts about it.
#pragma once

#include "base/text.h"
#include "protocol/commands.h"
#include "protocol/request.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// The ports of the configuration that an installation starts with.
constexpr uint16_t default_client_port = 9410; // where a daemon listens
constexpr uint16_t default_server_port = 9411; // where a manager listens

struct endpoint {
    std::string host; // name or IPv4 address
    uint16_t port;
};

// "ADDR[:PORT]"; empty when it is no such text.
std::optional<endpoint> parse_endpoint(const std::string &text, uint16_t default_port);

// True for a dotted IPv4 address.
bool is_address(const std::string &text);

// The code of a command, known when the tool is built; a name that is none does not compile.
consteval uint32_t command_code(std::string_view name)
{
    for (const command_name &known : command_names) {
        if (name == known.name)
            return known.code;
    }
    throw "no such command";
}

// A descriptor that closes itself.
struct connection {
    int fd = -1;
    connection() = default;
    explicit connection(int open_fd) : fd(open_fd) {}
    connection(connection &&other) noexcept : fd(other.fd) { other.fd = -1; }
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;
    ~connection();
};

// A connection whose reads give up after TIMEOUT seconds of silence (0: never). fd is -1 on failure, and
// ERROR then says why.
connection connect_tcp(const endpoint &peer, unsigned timeout, std::string &error);
connection connect_local(const std::string &path, unsigned timeout, std::string &error);

// The address of this end of a TCP connection; "" when it has none.
std::string local_address(const connection &peer);

// Sends one command with an optional body and reads the answer into the record. Null on failure, and ERROR
// then says why.
std::unique_ptr<request> exchange(const connection &peer, uint32_t code, uint16_t origin,
                                  const optional_text &body, std::string &error);

// The name of a command; "command" for a code that is not listed.
const char *name_of(uint32_t code);

// What a reply status means; "unknown status" for one that is not listed.
const char *meaning_of(uint16_t status);

// Once at the start of a tool: its peers' going is an error of a call, and failures are told by the tool
// itself, on standard error.
void init_tool();
