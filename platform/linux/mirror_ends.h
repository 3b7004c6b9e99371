// The two disks of a mirror relationship as its worker thread knows them, and their links.
#pragma once

#include "platform/linux/locate_disk.h"
#include "platform/linux/mirror.h"

enum class side { source, dest };

struct mirror_end {
    std::optional<located_disk> disk; // null: not there, or unfit
    // Where a transfer failed: the link stays down until one at that very place has succeeded.
    std::optional<uint64_t> fault;
};

struct mirror_ends {
    mirror_end source;
    mirror_end dest;
};

// Sees whether both are there still, and looks for those that are not. True when both are.
bool find_disks(mirror &one, mirror_ends &ends);

// Keeps and logs that a link went down or came up, unless it was so before; an empty PROBLEM is up.
void set_link(mirror &one, side which, const mirror_end &end, const std::string &problem);
