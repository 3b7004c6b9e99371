// Keeps a tracked mirror level: copies the pages that are written, again and again.
#pragma once

#include "platform/linux/mirror/copying.h"

// Whether the writes are tracked and the marks cover all that may differ on the mirror.
bool is_followed(const copying &work);

// Follows the writes for about a second. False at once if there is nothing to follow: the writes are not
// tracked, the mirror must be compared as a whole first, a disk failed, or another order came.
bool follow_writes(copying &work);
