// Copies one block device to another with direct I/O in large aligned blocks, several of them in flight.
#pragma once

#include "platform/linux/devices/disk_signature.h"

#include <cstdint>
#include <functional>
#include <optional>

inline constexpr uint64_t copy_block = uint64_t{1} << 20; // bytes
inline constexpr uint64_t compared_page = 4096;           // differences are written in units of this size

struct copy_job {
    int source = -1;      // opened with O_DIRECT
    int mirror = -1;      // likewise, for reading as well when the blocks are compared
    uint64_t begin = 0;   // a multiple of the page
    uint64_t end = 0;     // bytes, a multiple of the logical block of both
    bool compare = false; // only write what differs
    // Written at the place of the disk signature on the mirror, whatever the source has there.
    std::optional<disk_signature> own_signature = std::nullopt;
    // Called when a block has ended and more are left to start. Everything before POSITION has been copied.
    // False stops the copy after the blocks in flight have ended.
    std::function<bool(uint64_t position)> go_on = [](uint64_t) { return true; };
};

enum class copy_end { done, stopped, source_failed, mirror_failed, failed };

struct copy_result {
    copy_end end = copy_end::done;
    int error = 0;          // errno of the failure
    uint64_t failed_at = 0; // offset of the failed block
    uint64_t position = 0;  // everything before it has been copied
    uint64_t written = 0;   // bytes
};

// Copies on the calling thread. Only an fsync makes what was written durable.
copy_result copy_blocks(const copy_job &job);
