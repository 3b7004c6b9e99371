// What is told of a mirror to whoever asks.
#pragma once

#include "platform/linux/mirror/mirror.h"

struct mirror_view {
    mirror_record record;
    unsigned percent = 0;
};

// A mirror is level only if neither disk has changed since; the worker may not have noticed yet. The caller
// holds the mirror's lock.
mirror_view view_of(const mirror &one);

// The same for a mirror that was proven level a moment ago.
mirror_view view_when_level(const mirror &one);

// The same for a mirror that another process runs, by its saved record.
mirror_view view_of(const mirror_record &record);
