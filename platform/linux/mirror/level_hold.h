// Holds a mirror at the very moment at which it is proven level. Levels of a disk under load last
// milliseconds: whoever looks from outside mostly comes too late.
//
// Functions of the embedded libtw beside those of tw.h, for the embedded agent.
#pragma once

#include "tw.h"

extern "C" {

enum hold_manner {
    hold_at_leisure = 0,
    // Writers wait until the caller has the hold: there is no limit of speed, and nothing is saved before.
    hold_in_haste = 1,
};

// Waits at most TIMEOUT_MS for that moment. Returns a descriptor: nothing is written to the mirror until the
// caller closes it, whatever happens to the disk. -1 with errno: ETIMEDOUT; ENOENT: no such mirror; ENOTSUP:
// another process runs the mirrors; EBUSY: somebody waits already.
__attribute__((weak, visibility("default"))) int tw_hold_at_level(const char *mirror_guid, int timeout_ms,
                                                                  hold_manner manner = hold_at_leisure);

// tw_disk_stat, which waits for a mirror that is level from time to time; this does not.
__attribute__((weak, visibility("default"))) struct tw_relationship *tw_disk_stat_now(const char *guid);
}
