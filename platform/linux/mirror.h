// A mirror relationship in the process that runs the mirrors, shared by its worker thread and its callers.
#pragma once

#include "platform/linux/mirror_record.h"
#include "platform/linux/monotonic_condition.h"

#include <mutex>
#include <optional>

struct mirror {
    std::mutex lock; // of all that follows, and held while the record is saved, so that the last one stands
    monotonic_condition changed; // orders, or leaving
    mirror_record record;        // as saved, unless saving failed
    uint64_t copied = 0;         // how far the worker has come, beyond the record's position
    unsigned orders = 0;         // counts resyncs and stops: whatever began under another number must end
    bool leaving = false;        // the worker must end
    std::optional<pthread_t> worker;
};
