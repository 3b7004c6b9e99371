// A host that reports to qelc-manager, as its last heartbeat shows it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct reported_mirror {
    std::string disk;   // its name; its GUID if it has no name
    std::string guid;   // of the disk
    uint32_t state = 0; // see qel_backup_state
    int percent = 0;
};

struct known_host {
    std::string id; // "" if its report has none
    std::string name;
    std::string address; // where its last heartbeat came from
    std::string ips;     // its own list of them
    int64_t first = 0;   // heartbeat, in seconds since the epoch
    int64_t last = 0;
    size_t mirrors = 0;
    std::optional<reported_mirror> worst; // of its mirrors

    bool is_silent = false;   // and that was told
    bool is_released = false; // its next heartbeat is answered so that it forgets this manager
};

// What tells a host from all others: its ID, or its address if it has none.
inline const std::string &key_of(const known_host &host)
{
    return host.id.empty() ? host.address : host.id;
}

// A host that has not reported for so long is silent: six heartbeats.
constexpr int64_t seconds_to_silence = 30;
