// The daemon of this host as its processes show it, whether it answers or not.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>

struct daemon_process {
    pid_t worker = 0;               // 0: there is none, or it cannot be seen
    time_t since = 0;               // when it was started; 0: not known
    std::optional<uint64_t> memory; // bytes of both processes, shared pages in part; null without the right
};

// Null if no supervisor runs.
std::optional<daemon_process> find_daemon();

// The working process alone; 0 if there is none, or it cannot be seen.
pid_t find_worker();
