// The hosts that report to this manager, as their last heartbeats show them.
#pragma once

#include "tools/common/known_host.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

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

// Of the hosts with that name, address or ID, forgets the only one, or marks it as released. Returns what is
// wrong, "" for nothing.
std::string forget_host(host_table &table, const std::string &word);
std::string release_host(host_table &table, const std::string &word);

// "mirror down"; "synchronising, 43 %".
std::string state_text(const reported_mirror &mirror);

// The place of a state in the order of alarm: 0 is the worst.
size_t rank_of(uint32_t mirror_state);
