// Limits how fast mirrors are copied, as the settings say, or else decimal text in
// /var/lib/twinvault/throttle: bytes per second. Neither, or 0, means no limit.
#pragma once

#include <chrono>
#include <cstdint>

// One copy's limit.
class throttle {
public:
    using clock = std::chrono::steady_clock;

    // How long to wait before going on at POSITION; 0: do not wait. The limit is read once a second.
    std::chrono::milliseconds pause(uint64_t position, clock::time_point now);

private:
    uint64_t rate_ = 0;
    uint64_t start_ = 0; // position and time from which the rate counts
    clock::time_point since_{};
    clock::time_point next_read_{};
};
