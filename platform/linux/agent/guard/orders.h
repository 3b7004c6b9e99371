// What the agent and its freeze guard say to each other, over a socket that keeps messages apart.
#pragma once

#include <cstdint>

inline constexpr unsigned most_file_systems = 64;

// Each order gets one answer. The end of the socket is the order to thaw and to end.
enum class guard_order : uint8_t {
    take,   // comes with an open file of each file system
    sync,   // writes out what their caches hold
    freeze, // all of them, or none; from here on the deadline runs
    thaw,
};

struct guard_answer {
    int32_t error = 0;  // errno; 0: done. Thaw: ETIMEDOUT: the deadline came first; EINVAL: so did somebody
    uint32_t which = 0; // the file system that the error is about
    uint32_t frozen_ms = 0; // thaw: for how long
    uint32_t failures = 0;  // thaw: attempts that failed; it is tried until it succeeds
};
