// One piece of periodic work, as the timer keeps it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

// The values are fixed; there is no 3.
enum job_type : int32_t { JOB_HEARTBEAT = 1, JOB_CDP_DISK = 2, JOB_CDP_GROUP = 4 };

struct job_status {
    int32_t type = 0;
    // Called when the job fires, with the job list locked, so it must only start a thread. JOB is null for a
    // heartbeat job. A negative result is a failure.
    int32_t (*handler)(const job_status *job) = nullptr;
    // Atomic, because the heartbeat worker sets these two without locking the list.
    std::atomic<int64_t> next_time = 0; // due time, whole seconds of clock_monotonic
    std::atomic<uint32_t> backoff = 0;  // half of it, rounded down, is added to the interval
    uint32_t interval = 0;              // seconds
    int32_t released = 0;               // 1: the timer thread frees it at its next pass
    std::string group;                  // consistency group (group CDP jobs)
    std::string local;                  // local disk (disk CDP jobs)
    std::string mirror;                 // mirror disk's GUID (disk CDP jobs)
};

// A new job of zeros; null after a log line when out of memory.
std::unique_ptr<job_status> _alloc_job_status();
