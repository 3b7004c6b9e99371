// The facts of a report as one-line texts for the debug log; they never reach the wire.
//
// The caller holds the inventory's lock. Texts are hand-built and not escaped: a person reads them.
#pragma once

#include "client/inventory.h"

#include <string_view>
#include <unordered_set>

void xml_print_simple_client(const qel_inventory_t &inventory);
void xml_print_disks(const qel_inventory_t &inventory);
void xml_print_channels(const qel_inventory_t &inventory);
void xml_print_backups(const qel_inventory_t &inventory);
void xml_print_databases(const qel_inventory_t &inventory);

// All of them, as far as a report of that kind holds their facts.
void trace_report(const qel_inventory_t &inventory, int full);

// "0" for Oracle, "-1" for any other type.
const char *database_type(const qel_db_t &database);

// Which disks are mirror destinations: volumes of the storage system that a report leaves out.
struct mirror_guids {
    std::unordered_set<std::string_view> guids; // of the inventory's backups, borrowed

    explicit mirror_guids(const qel_inventory_t &inventory)
    {
        for (const qel_backup_t &backup : inventory.backups)
            guids.insert(backup.dest_guid);
    }
    bool hold(const qel_disk_t &disk) const { return disk.is_lun && disk.guid && guids.contains(*disk.guid); }
};
