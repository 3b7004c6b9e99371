// The content of a report as one-line texts for the debug log; they are never sent.
//
// The caller holds the inventory's lock. The texts are not escaped: they are for people.
#pragma once

#include "client/inventory.h"

void xml_print_simple_client(const qel_inventory_t &inventory);
void xml_print_disks(const qel_inventory_t &inventory);
void xml_print_channels(const qel_inventory_t &inventory);
void xml_print_backups(const qel_inventory_t &inventory);
void xml_print_databases(const qel_inventory_t &inventory);

// All of these lines that belong to a report of that kind.
void trace_report(const qel_inventory_t &inventory, int full);
