// What a mirror's worker copies: everything once, then what has been written to the source.
#pragma once

#include "platform/linux/mirror/ends.h"

// Copies what is due, if anything, until it is done, fails, or another order comes. Both disks must be
// present. True if the writes to the source are followed: it then takes about a second, and should be called
// again at once.
bool copy_what_is_due(mirror &one, mirror_ends &ends);
