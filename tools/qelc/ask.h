// What all parts of qelc share: asking the daemon, and error messages.
#pragma once

#include "tools/common/exchange.h"

#include <cstdint>
#include <memory>
#include <string>

enum exit_status {
    exit_ok = 0,
    exit_refused = 1, // or failed
    exit_usage = 2,
    exit_no_answer = 3, // the daemon cannot be reached, or does not answer
    exit_not_found = 4,
    exit_not_adopted = 5,
    exit_partly = 6, // done for some of what was named
};

// Where the daemon is, and how it is asked.
struct peer_options {
    std::string host; // ADDR[:PORT]; "": by the local socket
    std::string socket_path = "/var/run/qelcd.sock";
    uint16_t origin = 0;
    unsigned timeout = 120; // seconds
};

// The next step where no manager has adopted the host.
extern const char how_to_adopt[];

// Complains on standard error. Returns STATUS.
int fail(int status, const std::string &what, const std::string &why);

// Sends one command over a connection of its own and returns the answer. On failure returns null; ERROR says
// why, and STATUS is what the program ends with.
std::unique_ptr<request> try_ask(const peer_options &peer, uint32_t code, const optional_text &body,
                                 exit_status &status, std::string &error,
                                 const waiting_call &waiting = nullptr);

// The same, but complains on failure.
std::unique_ptr<request> ask(const peer_options &peer, uint32_t code, const optional_text &body, int &status);

// Prints the answer for a person to read, or with RAW only its body. The body is unchanged unless it goes to
// a terminal. Returns what the program ends with.
int print_answer(const request &reply, bool raw);
