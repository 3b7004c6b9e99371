// What a mirror's worker copies: everything once, then the differences whenever the source has been written
// to.
#pragma once

#include "platform/linux/mirror/ends.h"

// Copies what is due, if anything, until it is done, fails, or another order comes. Both disks must be
// present.
void copy_what_is_due(mirror &one, mirror_ends &ends);
