// How much of a disk has been written or discarded so far, as the kernel counts it (the kernel's
// Documentation/block/stat.rst): two equal marks mean that the disk has not changed between them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct write_mark {
    std::string boot;     // the counter begins anew with the system
    std::string disk;     // and with the device; "" where the kernel does not number devices
    uint64_t sectors = 0; // written and discarded, as far as that has reached the disk

    bool operator==(const write_mark &) const = default;
};

// NAME is a kernel name. Null when the disk is gone, or does not count.
std::optional<write_mark> read_write_mark(const std::string &name);
