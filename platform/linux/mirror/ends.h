// The two disks of a mirror relationship and their links, as the worker thread knows them.
#pragma once

#include "platform/linux/mirror/locate_disk.h"
#include "platform/linux/mirror/mirror.h"

enum class side { source, dest };

struct mirror_end {
    std::optional<located_disk> disk; // null: missing or unsuitable
    // Where a transfer failed: the link stays down until a transfer at the same place succeeds.
    std::optional<uint64_t> fault;
};

struct mirror_ends {
    mirror_end source;
    mirror_end dest;
};

// Checks that both disks are still there, and searches for a missing one. True if both are there.
bool find_disks(mirror &one, mirror_ends &ends);

// Saves and logs a change of a link; an empty PROBLEM means that the link is up.
void set_link(mirror &one, side which, const mirror_end &end, const std::string &problem);
