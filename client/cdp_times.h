// When snapshots are taken: the times of a disk's or a group's CDP schedule.
#pragma once

#include <cstdint>

// The schedule is active if the console's start and the interval are both set.
struct cdp_times {
    uint64_t con_start_time = 0; // seconds since the epoch: the start that the console set; 0: no start
    uint64_t start_time = 0;     // seconds since the epoch: the next run
    uint32_t timeout = 0;        // interval in seconds; 0: no interval

    bool are_set() const { return con_start_time != 0 && timeout != 0; }
    bool are_clear() const { return con_start_time == 0 && timeout == 0; }
};

// The first time after NOW that is a whole number of intervals away from START. Signed 64-bit arithmetic; the
// interval must not be 0.
inline uint64_t cdp_next_slot(uint64_t start, uint32_t interval, int64_t now)
{
    const auto present = static_cast<uint64_t>(now);
    const auto elapsed = static_cast<int64_t>(present - start);
    return present + interval - static_cast<uint64_t>(elapsed % int64_t{interval});
}

// The times of a schedule that the console starts at START. If START has passed, the next run is the next
// slot.
inline cdp_times cdp_times_from(uint64_t start, uint32_t interval, int64_t now)
{
    const bool has_passed = static_cast<int64_t>(start) < now;
    return {.con_start_time = start,
            .start_time =
                start != 0 && interval != 0 && has_passed ? cdp_next_slot(start, interval, now) : start,
            .timeout = interval};
}
