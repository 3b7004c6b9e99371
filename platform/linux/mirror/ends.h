// The two disks of a mirror relationship and their links, as the worker thread knows them.
#pragma once

#include "base/deleter.h"
#include "platform/linux/mirror/disk_watch.h"
#include "platform/linux/mirror/locate_disk.h"
#include "platform/linux/mirror/mirror.h"
#include "platform/linux/mirror/page_samples.h"
#include "platform/linux/mirror/progress.h"
#include "platform/linux/mirror/throttle.h"

#include <chrono>
#include <cstdlib>
#include <memory>

enum class side { source, dest };

struct mirror_end {
    std::optional<located_disk> disk; // null: missing or unsuitable
    unique_fd fd;                     // open as long as the disk is there
    disk_watch watch;                 // likewise
    page_samples samples;             // of a mirror
    unique_fd claim;                  // of a mirror: tells the disk library whose it is
    bool needs_flush = true;          // of a mirror: pages have been copied to it since it was flushed
    uint64_t census = 0;              // the disks of the host when it was located
    // Where a transfer failed: the link stays down until a transfer at the same place succeeds.
    std::optional<uint64_t> fault;
};

// Whether the writes to the source are tracked, and why not.
struct tracking_choice {
    bool is_settled = false; // no other attempt before RETRY
    std::chrono::steady_clock::time_point retry = std::chrono::steady_clock::time_point::max();
    std::optional<std::chrono::steady_clock::time_point> doubt_since; // the books have not balanced
    unsigned doubts = 0;                     // looks that found so, one after the other
    std::string why;                         // it is not tracked; "" if it is
    std::chrono::milliseconds look_period{}; // at the sums; longer, the longer nothing was written
    // Of the tracked and the counted sectors, within the pause that follows the third.
    unsigned mismatches = 0;
    std::chrono::steady_clock::time_point last_mismatch{};
};

struct mirror_ends {
    mirror_end source;
    mirror_end dest;
    tracking_choice tracking;
    progress_report progress;
    std::unique_ptr<char, deleter<free>> pages; // what is copied page by page goes through it
    throttle limit;
    uint64_t copied = 0; // bytes, by all copies and passes; for the limit
};

// Checks that both disks are still there, alone with their GUID and counted, searches for a missing one, and
// opens both; the mirror is claimed from then on. True if both are there.
bool find_disks(mirror &one, mirror_ends &ends);

// Saves and logs a change of a link; an empty PROBLEM means that the link is up.
void set_link(mirror &one, side which, const mirror_end &end, const std::string &problem);
