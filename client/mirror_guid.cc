#include "client/mirror_guid.h"

#include "base/log.h"

#include <new>

optional_text get_mirror_guid_of_local(const char *local_guid, const qel_inventory_t *inventory)
{
    log_info("Searching for the mirror GUID of local disk %s.", local_guid ? local_guid : "(null)");
    for (const qel_backup_t &backup : inventory->backups) {
        if (!local_guid || backup.src_guid != local_guid)
            continue;
        log_info("Found mirror %s.", backup.dest_guid.c_str());
        try {
            optional_text mirror = backup.dest_guid;
            log_info("Mirror GUID %s retrieved.", mirror->c_str());
            return mirror;
        } catch (const std::bad_alloc &) {
            log_error("Failed to allocate memory for disk GUID.");
            return std::nullopt;
        }
    }
    return std::nullopt;
}
