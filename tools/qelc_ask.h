// What every part of qelc does alike: it asks the daemon, and complains.
#pragma once

#include "tools/exchange.h"

#include <cstdint>
#include <memory>
#include <string>

enum exit_status { exit_ok = 0, exit_refused = 1, exit_usage = 2, exit_no_answer = 3 };

// Where the daemon is, and how it is asked.
struct peer_options {
    std::string host; // ADDR[:PORT]; "": by the local socket
    std::string socket_path = "/var/run/qelcd.sock";
    uint16_t origin = 0;
    unsigned timeout = 120; // seconds
};

// Complains on standard error. Returns STATUS.
int fail(int status, const std::string &what, const std::string &why);

// For an answer that is not what the question was about. Returns exit_no_answer.
int fail_unreadable();

// One command with its answer, over a connection of its own. Null after a complaint, and STATUS is then what
// the program ends with.
std::unique_ptr<request> ask(const peer_options &peer, uint32_t code, const optional_text &body, int &status);

// The answer for a person to read; RAW: its body as it came, and nothing else. Returns what the program ends
// with.
int print_answer(const request &reply, bool raw);
