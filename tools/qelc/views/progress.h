// How far a mirror is, as the mirror library of this host tells it beside the daemon.
#pragma once

#include "tools/qelc/bodies/protection.h"

#include <cstdint>
#include <optional>
#include <string>

// Null is what nobody tells: another host, another mirror library, or none that runs.
struct progress_view {
    bool is_level = false;
    std::optional<uint64_t> rate;         // of a copy, in bytes per second
    std::optional<uint64_t> seconds_left; // of a copy
    std::optional<uint64_t> bytes_behind;
    std::optional<uint64_t> page_size; // of the tracking, in bytes
    std::optional<uint64_t> level_ago; // seconds
    std::optional<bool> is_tracked;
    std::string reason; // why not
};

// The answers come from the daemon of this host. Set once, before the first of them is shown.
extern bool is_daemon_local;

// IS_LEVEL: so the daemon has just said, which is newer than what is read here.
progress_view progress_of(const mirror_pair &guids, bool is_level);

// Null if writes are not tracked. A part of a page counts as one.
std::optional<uint64_t> pages_behind(const progress_view &progress);

// "30 MiB/s, 2 min left" of a copy, "4.0 KiB behind, level 3 s ago" of another mirror; "" if nobody tells.
std::string progress_text(const progress_view &progress);

// "now", "3 s ago"; "-" if nobody tells.
std::string level_text(const progress_view &progress);
