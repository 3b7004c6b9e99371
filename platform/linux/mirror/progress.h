// Tells everybody in /run how far a mirror is; see state/progress.h. Belongs to the mirror's worker.
#pragma once

#include "platform/linux/mirror/mirror.h"
#include "platform/linux/state/progress.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

class progress_report { // takes no memory until it is used
public:
    // A pass has come to POSITION, in bytes, or, without one, none runs. Positions of one pass ascend. WHY:
    // the writes are not tracked. Writes at most once a second, and at once when a mirror that was level for
    // long is so no more. The caller may hold the mirror against marks: nothing here waits for a disk. A
    // failure changes nothing.
    void note(mirror &one, const std::string &why, std::optional<uint64_t> position = std::nullopt);

private:
    using clock = std::chrono::steady_clock;
    struct sample {
        clock::time_point time;
        uint64_t position;
    };

    bool is_still_at_rest(mirror &one) const;
    uint64_t rate_at(clock::time_point now, uint64_t position);
    void begin(mirror &one);
    void write(mirror_progress fresh);

    bool has_begun_ = false;
    mirror_progress shown_;          // what the file holds
    write_mark former_mark_;         // of the source at the last look
    uint64_t former_events_ = 0;     // of its tracker
    std::vector<sample> samples_;    // of the pass that runs, over its last seconds
    clock::time_point next_write_{}; // not before
};
