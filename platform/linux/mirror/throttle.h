// Limits how fast mirrors are copied, as the settings say, or else decimal text in
// /var/lib/twinvault/throttle: bytes per second. Neither, or 0, means no limit.
#pragma once

#include <chrono>
#include <cstdint>

// One mirror's limit, over all its copies and passes.
class throttle {
public:
    using clock = std::chrono::steady_clock;

    // How long to wait before going on after that many BYTES in all; 0: do not wait. The limit is read once a
    // second. What was not used for long may be used up at once for a second's worth only.
    std::chrono::milliseconds pause(uint64_t bytes, clock::time_point now);

private:
    uint64_t rate_ = 0;
    uint64_t start_ = 0; // bytes and time from which the rate counts
    clock::time_point since_{};
    clock::time_point next_read_{};
};
