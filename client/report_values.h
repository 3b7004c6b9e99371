// How values of the inventory are written in the report, and which disks it leaves out. The debug log writes
// them the same way.
#pragma once

#include "base/text.h"
#include "client/inventory_records.h"

#include <list>
#include <string>
#include <string_view>
#include <unordered_set>

// Writes a WWN as sysfs has it (0x2100...) in pairs of digits with colons between them. Returns the length,
// or -1 with DST unchanged.
int format_wwn(std::string *dst, const char *wwn);

// The same; empty for anything that is not such a WWN.
std::string colon_separated(const optional_text &wwn);

// "kav_{GUID}", the form in which a mirror's GUID is sent.
std::string wrap_mirror_guid(const std::string &guid);

// "0" for Oracle, "-1" for any other type.
const char *database_type(const qel_db_t &database);

// Tells which disks are mirror destinations: volumes of the storage system, which a report leaves out.
struct mirror_guids {
    std::unordered_set<std::string_view> guids; // borrowed from the backups

    explicit mirror_guids(const std::list<qel_backup_t> &backups)
    {
        for (const qel_backup_t &backup : backups)
            guids.insert(backup.dest_guid);
    }
    bool hold(const qel_disk_t &disk) const { return disk.is_lun && disk.guid && guids.contains(*disk.guid); }
};
