// One turn of a mirror's worker, as its steps share it.
#pragma once

#include "platform/linux/mirror/block_copy.h"
#include "platform/linux/mirror/ends.h"

#include <chrono>
#include <string>

struct copying {
    copying(mirror &of, mirror_ends &both);

    mirror &one;
    mirror_ends &ends;
    write_tracker *tracker = nullptr; // null: writes are not tracked
    copy_job job;
    unsigned orders = 0;
    std::string src_guid;
    std::string dest_guid;
    unique_fd hold;
    std::optional<uint64_t> position; // of the pass, where it was last; null: it begins
    std::chrono::steady_clock::time_point next_checkpoint;
    int sync_error = 0; // why a flush failed
};

// The caller holds the mirror's lock.
bool is_in_force(const copying &work);

// Whether somebody waits for a level who keeps writers waiting. The caller holds the mirror's lock.
bool is_hurried(const copying &work);

// Keeps everybody else from the mirror until work.hold is closed. False while somebody else holds it, which
// is no failure.
bool hold_mirror(copying &work);

// Call this before it is looked at whether the mirror is level.
void note_who_waits(const copying &work);

// The mirror has been proven level: gives the hold to whoever waited for that before. Whoever came later
// wants a moment after that, which this may not be.
void hand_over_hold(copying &work);

// Takes down the link of the disk that failed. It stays down until a transfer at OFFSET succeeds.
void fail(copying &work, side which, uint64_t offset, const std::string &problem);

// Flushes the mirror, so that its recorded state survives a power cut.
bool make_lasting(copying &work);

// Sets the link of the disk down that RESULT, or a flush, blames. True if there is nothing to blame.
bool is_done(copying &work, const copy_result &result);

// The pass has come so far.
void note_position(copying &work, uint64_t position);

// Waits then as long as the limit demands. False if the order is in force no more.
bool wait_for_turn(copying &work, uint64_t position);
