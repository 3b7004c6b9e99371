// What the command-line tools share: connecting to a peer, one framed exchange with it, and texts about it.
#pragma once

#include "base/fd.h"
#include "base/text.h"
#include "protocol/commands.h"
#include "protocol/request.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// The ports of the configuration that an installation starts with.
constexpr uint16_t default_client_port = 9410; // where a daemon listens
constexpr uint16_t default_server_port = 9411; // where a manager listens

struct endpoint {
    std::string host; // name or IPv4 address
    uint16_t port;
};

// Reads "ADDR[:PORT]". None if the text has another form.
std::optional<endpoint> parse_endpoint(const std::string &text, uint16_t default_port);

// True for a dotted IPv4 address.
bool is_address(const std::string &text);

// What is wrong with a text that is to be an IPv4 address; "" for nothing.
std::string check_address(const std::string &text);

// A connection whose reads and writes give up after TIMEOUT seconds of silence (0: never). On failure it is
// not open, and ERROR says why.
unique_fd connect_tcp(const endpoint &peer, unsigned timeout, std::string &error);
unique_fd connect_local(const std::string &path, unsigned timeout, std::string &error);

// The address of this end of a TCP connection; "" for another kind of connection.
std::string local_address(const unique_fd &peer);

// Called about each second while there is no answer yet.
using waiting_call = std::function<void()>;

// Sends one command with an optional body and reads the answer into the record. On failure returns null, and
// ERROR says why.
std::unique_ptr<request> exchange(const unique_fd &peer, uint32_t code, uint16_t origin,
                                  const optional_text &body, std::string &error,
                                  const waiting_call &waiting = nullptr);

// The name of a command; "command" for an unknown code.
const char *name_of(uint32_t code);

// What a reply status means; "unknown status" for one that is not listed.
const char *meaning_of(uint16_t status);

// To be called once at the start of a tool. A lost peer then fails the call instead of raising SIGPIPE, and
// the library code logs nothing: the tool reports failures itself, on standard error.
void init_tool();
