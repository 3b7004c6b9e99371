// The mirrors in a client report.
#pragma once

#include "tools/qelc/bodies/protection.h"
#include "tools/qelc/views/progress.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct mirror_schedule {
    snapshot_times times;
    std::string group; // whose schedule it is; "": the mirror's own
};

struct mirror_view {
    std::string disk; // name of the source; its GUID if it has no name
    mirror_pair guids;
    uint32_t state = 0; // see qel_backup_state
    int percent = 0;
    std::vector<mirror_schedule> schedules;
    progress_view progress;
};

// None if the text is not a client report.
std::optional<std::vector<mirror_view>> mirrors_of(const char *report);

// The state in words.
std::string mirror_state_text(const mirror_view &mirror);

// What somebody may type or do so that the mirror becomes level.
std::string way_to_level(const mirror_view &mirror);

// True while data is being copied.
bool is_synchronising(const mirror_view &mirror);

// The next run of a schedule, in seconds since the epoch.
uint64_t next_snapshot(const snapshot_times &times);

// The mirrors in two tables, how far they are and whose they are, or "no mirrors". None if the text is not a
// client report.
optional_text mirrors_page(const char *report);
