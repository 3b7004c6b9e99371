// The client report: the document that tells a manager all about this host.
#pragma once

#include "base/text.h"
#include "client/client.h"
#include "client/inventory.h"

#include <cstdint>
#include <string>

// The report. FULL 0: the host alone; 1: with disks, channels, backups and databases and, when CLIENT is not
// null, its groups. The caller holds the inventory's lock; of the record only the content_lock is taken.
std::string client_to_xml(const qel_inventory_t &inventory, const qel_t *client, int full);

// The 32 bits of VALUE as '0' and '1', most significant first.
std::string dboem_to_bits(int32_t value);

// Writes a WWN of sysfs (0x2100...) in pairs with colons. Returns its length, or -1 with DST untouched.
int format_wwn(std::string *dst, const char *wwn);

// "kav_{GUID}", the form in which a mirror travels.
std::string wrap_mirror_guid(const std::string &guid);
