// A mirror relationship in the process that runs the mirrors, shared by its worker thread and callers.
#pragma once

#include "platform/linux/mirror/monotonic_condition.h"
#include "platform/linux/mirror/record.h"
#include "platform/linux/mirror/wake_event.h"
#include "platform/linux/tracking/write_tracker.h"

#include <memory>
#include <mutex>
#include <optional>

struct hold_request {
    bool hurries = false;  // writers wait meanwhile: see hold_in_haste
    bool is_noted = false; // made before the pass began that is going on
    unique_fd hold = {};   // open once the mirror is held at its level
};

struct mirror {
    std::mutex lock; // guards all members below; held while the record is saved, so that saves are in order
    wake_event changed;      // its worker waits for it: orders, leaving and whoever waits for a level
    mirror_record record;    // as saved, but for its marks, unless saving failed
    uint64_t copied = 0;     // how far the worker has copied, at or beyond the record's position
    unsigned orders = 0;     // counts resyncs and stops: a copy that began under another number must end
    bool leaving = false;    // the worker must end
    bool is_unsaved = false; // the record's marks have moved since it was saved
    uint64_t levels = 0;     // how often it was proven level
    uint64_t levels_in_vain = UINT64_MAX; // what that was when somebody waited for the next one in vain
    uint64_t level_at = 0;                // in seconds_since_boot(): when it was found level last; 0: not yet
    std::shared_ptr<write_tracker> tracker; // null: not tracked; all but its sums belongs to the worker
    hold_request *waiting = nullptr; // of somebody who waits for the next level, and takes it away again
    monotonic_condition served;      // signalled when that has its hold
    monotonic_condition levelled;    // signalled when it is proven level
    std::optional<pthread_t> worker;
};
