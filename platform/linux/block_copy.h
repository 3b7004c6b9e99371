// Copying of one block device onto another: direct I/O in large aligned blocks, several of them on their way.
#pragma once

#include "platform/linux/disk_signature.h"

#include <cstdint>
#include <functional>
#include <optional>

inline constexpr uint64_t copy_block = uint64_t{1} << 20; // bytes
inline constexpr uint64_t compared_page = 4096;           // what differs is written in units of this

struct copy_job {
    int source = -1;      // opened with O_DIRECT
    int mirror = -1;      // likewise, for reading as well when the blocks are compared
    uint64_t begin = 0;   // a multiple of the page
    uint64_t end = 0;     // bytes, a multiple of the logical block of both
    bool compare = false; // only write what differs
    // What stands at the place of the disk signature on the mirror, whatever the source has there.
    std::optional<disk_signature> own_signature = std::nullopt;
    // Called whenever a block has ended and others are left to begin. All before POSITION has been copied;
    // false ends the copying once the blocks on their way have ended.
    std::function<bool(uint64_t position)> go_on = [](uint64_t) { return true; };
};

enum class copy_end { done, stopped, source_failed, mirror_failed, failed };

struct copy_result {
    copy_end end = copy_end::done;
    int error = 0;          // errno of what failed
    uint64_t failed_at = 0; // where the block begins
    uint64_t position = 0;  // all before it has been copied
    uint64_t written = 0;   // bytes
};

// Copies, on the calling thread. What was written is not on the mirror for good before an fsync.
copy_result copy_blocks(const copy_job &job);
