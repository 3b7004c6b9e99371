// How far mirrors are, for programs that show it: a small file for each in /run/twinvault, which the process
// that runs the mirrors writes and anybody may read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

enum class tracked_writes { unknown, yes, no };

struct mirror_progress {
    std::string src_guid;
    std::string dest_guid;
    uint64_t size = 0;         // bytes
    uint64_t copied = 0;       // bytes that a copy of everything has reached; the size if none is due
    uint64_t rate = 0;         // bytes per second, over the last seconds; 0 if nothing is copied
    uint64_t pages_behind = 0; // of what has been copied: written to the disk since
    uint64_t page_size = 0;    // bytes; 0 if writes are not tracked
    bool is_level = false;     // and has been since level_at
    uint64_t level_at = 0;     // when it was level last, in seconds_since_boot(); 0: not since then
    tracked_writes tracked = tracked_writes::unknown;
    std::string reason; // why writes are not tracked

    bool operator==(const mirror_progress &) const = default;
};

// Suspended time counts, and the system's clock does not matter (CLOCK_BOOTTIME).
uint64_t seconds_since_boot();

// False without a log line, as nobody relies on these files; there is none then.
bool write_progress(const mirror_progress &one);
void remove_progress(const std::string &src_guid);

// Null if there is none, or its writer is gone, unless a FORMER one since the boot will do.
enum class progress_writer { running, former };
std::optional<mirror_progress> read_progress(const std::string &src_guid,
                                             progress_writer writer = progress_writer::running);

// How many bytes of the mirror may differ from the disk.
uint64_t bytes_behind(const mirror_progress &one);
