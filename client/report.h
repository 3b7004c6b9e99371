// The client report: the document that describes this host to a manager.
#pragma once

#include "base/text.h"
#include "client/client.h"
#include "client/inventory.h"

#include <cstdint>
#include <string>

// The report. FULL 0: the host alone; 1: with disks, channels, backups, databases and, if CLIENT is not null,
// its groups. The caller holds the inventory's lock; the record's content_lock is taken.
std::string client_to_xml(const qel_inventory_t &inventory, const qel_t *client, int full);

// The 32 bits of VALUE as '0' and '1', most significant first.
std::string dboem_to_bits(int32_t value);
