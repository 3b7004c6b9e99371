// The hosts that report to this manager, as their last heartbeats show them.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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
std::string key_of(const known_host &host);

struct host_table {
    std::mutex lock;                         // for the list
    std::map<std::string, known_host> hosts; // by key
};

struct heartbeat_note {
    uint16_t status; // of the answer
    std::vector<std::string> news;
};

// Takes the report of a host at ADDRESS. NOW is in seconds since the epoch, here and below. News are what an
// administrator wants to read: a new host, one that is back, a worst mirror in another state.
heartbeat_note note_heartbeat(host_table &table, const std::string &address, const char *report, int64_t now);

// News of hosts that have become silent. Before START nobody could be heard.
std::vector<std::string> note_silence(host_table &table, int64_t start, int64_t now);

// A host that has not reported for so long is silent: six heartbeats.
constexpr int64_t seconds_to_silence = 30;

// Of the hosts with that name, address or ID, forgets the only one, or marks it as released. Returns what is
// wrong, "" for nothing.
std::string forget_host(host_table &table, const std::string &word);
std::string release_host(host_table &table, const std::string &word);

// "mirror down"; "synchronising, 43 %".
std::string state_text(const reported_mirror &mirror);

// The place of a state in the order of alarm: 0 is the worst.
size_t rank_of(uint32_t mirror_state);
