// Holding mirrors at a moment at which they are level.
#pragma once

#include "base/fd.h"

#include <chrono>
#include <string>
#include <vector>

struct mirrors_to_hold {
    std::vector<std::string> guids;  // without duplicates
    std::vector<std::string> disks;  // nodes of their sources
    std::vector<std::string> needed; // files that lie below a mirror
};

// Has the mirror library hold each mirror at its next level; those that HOLDS has already stay held. False
// with errno and the reason in WHY.
bool hold_each(const mirrors_to_hold &mirrors, std::chrono::steady_clock::time_point end,
               std::vector<unique_fd> *holds, std::string *why);

enum class freeze_result {
    held,
    not_done, // nothing was frozen, or not for long enough to matter; WHY says why
    failed,   // they were not level in time; nothing is held
};

// Freezes the file systems on the disks, at most for DEADLINE, and holds all mirrors meanwhile. If syncing
// the file systems is enough to make them level, nothing is frozen.
freeze_result hold_in_freeze(const mirrors_to_hold &mirrors, std::chrono::milliseconds deadline,
                             std::vector<unique_fd> *holds, std::string *why);
