// How much of a disk has been written or discarded so far, as the kernel counts it (the kernel's
// Documentation/block/stat.rst). If two marks are equal, the disk has not changed between them.
#pragma once

#include "base/fd.h"

#include <cstdint>
#include <optional>
#include <string>

struct write_mark {
    std::string boot;     // the counter restarts with the system
    std::string disk;     // and with the device; "" if the kernel does not number devices
    uint64_t sectors = 0; // written and discarded, as far as that has reached the disk

    bool operator==(const write_mark &) const = default;
};

const std::string &boot_id(); // "" if it cannot be read

// Opens the counters of the disk with that kernel name for sectors_changed. Closed with errno.
unique_fd open_counters(const std::string &name);

// The sectors of a write_mark, read again, at the cost of one system call. Null if the disk is gone.
std::optional<uint64_t> sectors_changed(const unique_fd &counters);

// NAME is a kernel name. Null if the disk is gone or has no counters.
std::optional<write_mark> read_write_mark(const std::string &name);

// Whether the kernel knows of writes that have begun and not ended. True if it does not tell.
bool has_writes_in_flight(const std::string &name);
