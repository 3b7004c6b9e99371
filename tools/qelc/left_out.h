// The disks of this host that the daemon does not report, each with the reason.
#pragma once

#include "tools/qelc/host.h"

#include <cstdint>
#include <string>
#include <vector>

struct left_out_disk {
    std::string name;
    uint64_t size = 0; // bytes
    std::string reason;
};

// Looks at the disks with the very rule by which the embedded libraries choose. Memory disks, loop devices
// without a file, and devices over snapshots are no disks for them, and not in this list either.
std::vector<left_out_disk> left_out_disks(host &at);
