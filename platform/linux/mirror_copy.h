// What a mirror's worker copies: everything once, then, whenever the source has been written to, what
// differs.
#pragma once

#include "platform/linux/mirror_ends.h"

// Does what is due, if anything is, until it is done, fails, or another order comes. Both disks are there.
void copy_what_is_due(mirror &one, mirror_ends &ends);
