// Finding the mirror of a disk.
#pragma once

#include "client/inventory.h"

// The mirror of a protected disk; absent if it has none. The caller holds the inventory's lock.
optional_text get_mirror_guid_of_local(const char *local_guid, const qel_inventory_t *inventory);
