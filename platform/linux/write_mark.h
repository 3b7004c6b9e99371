// How much has been written to a disk so far, as the kernel counts it (the kernel's
// Documentation/ABI/stable/sysfs-block, "stat"): two equal marks mean that nothing was written between them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct write_mark {
    std::string boot;     // the counter begins anew with the system
    std::string disk;     // and with the device; "" where the kernel does not number devices
    uint64_t sectors = 0; // written, as far as they have reached the disk

    bool operator==(const write_mark &) const = default;
};

// NAME is a kernel name. Null when the disk is gone, or does not count.
std::optional<write_mark> read_write_mark(const std::string &name);
