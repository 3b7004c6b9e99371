// Memory that runs out on purpose: libfault-memory.so takes the place of malloc and its sisters in a process
// that preloads it (LD_PRELOAD) or is linked with it, and fails the allocations that a plan names.
//
// The plan is a file in QELCD_FAULTS, mapped by the process and by whoever arms it; without that variable it
// is the process's own. Not counted: what the scripted platform libraries allocate, and what libxml2
// allocates for a thread that the daemon has prepared (base/xml.cc). With such a file sleeps are a hundred
// times shorter.
#pragma once

#include <atomic>
#include <cstdint>

enum fault_threads : int {
    fault_connections, // of the daemon: what its main thread starts after the first two
    fault_background,  // all others but the main thread
    fault_everyone,
};

struct fault_plan {
    std::atomic<uint64_t> first; // which allocation fails, from 1; 0: none, and none is counted
    std::atomic<bool> and_later; // all later ones, too
    std::atomic<int> threads;    // fault_threads
    std::atomic<uint64_t> seen;  // allocations since it was armed
    std::atomic<uint64_t> failed;

    void arm(uint64_t number, bool later, fault_threads whose)
    {
        seen = 0;
        failed = 0;
        and_later = later;
        threads = whose;
        first = number;
    }
    void disarm() { first = 0; }
};

constexpr uint64_t only_count = UINT64_MAX; // as FIRST: counts, and fails nothing

// The plan of this process.
extern "C" fault_plan *fault_plan_of_process();
