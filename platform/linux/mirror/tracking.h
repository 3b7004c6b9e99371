// Whether the writes to a mirror's source are tracked, and when that can be trusted.
#pragma once

#include "platform/linux/mirror/copying.h"

// By how many sectors that which was tracked is ahead of what the disk counts. Negative: something was
// missed.
int64_t surplus(const write_tracker &tracker, const tracker_sums &sums, uint64_t counted);

// Opens the tracker of the source, unless that was tried already, and looks whether the mirror is as it was
// left. Says in the log which pages it uses, or why there is none.
void settle_tracking(mirror &one, mirror_ends &ends);

// After the mirror was copied to in full, or when what has been written to it is known otherwise.
void note_mirror_state(copying &work);

// What the marks do not cover will be read: from now on they cover what is written meanwhile.
void begin_coverage(const copying &work);

// All of the mirror may differ.
void end_coverage(const copying &work);

// The marks cover all, or there are none.
bool covers_mirror(const copying &work);

// Something may have changed in an unknown place: everything will be compared. REASON goes to the log.
void compare_all(copying &work, const std::string &reason);

// The same when the tracker itself has missed something. When that happens again and again, it rests for a
// while; work.tracker is then null.
void distrust_tracking(copying &work, const std::string &reason);
