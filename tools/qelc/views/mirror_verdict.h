// What is said of mirrors that have been followed: whether each is level, and why not.
#pragma once

#include "tools/qelc/host.h"

#include <ctime>
#include <map>

// When a mirror, by the GUID of its disk, has come into the state in which it is.
struct state_change {
    uint32_t state = 0;
    time_t since = 0; // 0: it was in that state already when it was seen first
};
using state_changes = std::map<std::string, state_change>;

void note_changes(state_changes &changes, const std::vector<mirror_view> &mirrors);

// GONE were mirrors once. Refused unless all are level.
outcome verdict_of(const host &at, const std::vector<mirror_view> &mirrors,
                   const std::vector<mirror_view> &gone, const state_changes &changes);
