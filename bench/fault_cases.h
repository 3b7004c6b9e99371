// What bench-faults does while memory runs out: every command in a state in which it succeeds, and what
// threads do on their own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the daemon starts with. Disks L1 to L5 have the mirrors M1 to M5.
enum class host_state {
    adopted,     // groups G1 {L1}, with a schedule, and G2 {L2}; a schedule of L3; L1 to L3 are mirrored
    unprotected, // the same without relationships
    no_target,   // adopted by a manager without an iSCSI target
    free,        // adopted's without a manager
    due,         // adopted, and snapshots of G1 and L3 every second
};

std::string config_of(host_state state);
std::string relationships_of(host_state state); // as scripted libraries read them

constexpr char host_alias[] = "host";

struct fault_case {
    const char *name;
    uint32_t code = 0; // 0: no command; threads in the background after a start
    std::string body = "";
    host_state state = host_state::adopted;
    unsigned part =
        1; // the share of the allocations that are tried, one in PART: for what takes a second each
};

// Commands come in the order of their codes.
const std::vector<fault_case> &fault_cases();
