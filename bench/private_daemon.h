// The daemon of a private host, for benchmarks that end it again and again: its processes, and commands over
// its UNIX socket.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

constexpr char config_file[] = "/etc/kavtessaron/qelcd.conf";

struct answer {
    bool has_come = false;  // a whole reply
    bool is_closed = false; // by the daemon, within the limit
    uint16_t status = UINT16_MAX;
    std::string body;
};

// Sends one frame and waits for the reply, for LIMIT seconds at most, or until GIVE_UP, which is asked now
// and then, says so.
answer ask(
    uint32_t code, const std::string &body, int limit = 60,
    const std::function<bool()> &give_up = [] { return false; });

int supervisor(); // 0 without a PID file
int worker();     // 0 while there is none

// Waits until another worker than OLD is there. False if the daemon is gone for good.
bool wait_for_new_worker(int old);
