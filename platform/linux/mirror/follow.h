// Keeps a tracked mirror level: copies the pages that are written, again and again.
#pragma once

#include "platform/linux/mirror/copying.h"

// Follows the writes for about a second. False at once if there is nothing to follow: the writes are not
// tracked, the mirror must be compared as a whole first, a disk failed, or another order came.
bool follow_writes(copying &work);

// Whether the mirror, which was level at its record's marks, is so still. The caller holds its lock.
bool is_still_level(const mirror &one);
