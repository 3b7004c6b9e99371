// How fast the mirrors may be brought level: bytes per second, as decimal text in
// /var/lib/twinvault/throttle. No file, or 0, is no limit.
#pragma once

#include <chrono>
#include <cstdint>

// Of one copying.
class throttle {
public:
    using clock = std::chrono::steady_clock;

    // How long to wait before what follows POSITION; 0 for not at all. The file is read once a second.
    std::chrono::milliseconds pause(uint64_t position, clock::time_point now);

private:
    void read_rate();

    uint64_t rate_ = 0;
    uint64_t start_ = 0; // position and time from which the rate counts
    clock::time_point since_{};
    clock::time_point next_read_{};
    bool has_complained_ = false;
};
