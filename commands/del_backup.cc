#include "base/log.h"
#include "base/xml.h"
#include "client/client.h"
#include "client/inventory.h"
#include "client/relationship_chain.h"
#include "commands/frame.h"
#include "commands/protection.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/backups.h"

#include <kavdisk.h>
#include <tw.h>

namespace {
bool unprotect(const char *guid)
{
    if (!relationship_chain(guid).first) {
        log_error("Local disk %s doesn't exist.", guid);
        return false;
    }
    log_info("Disk %s is under twinvault protection.", guid);
    if (tw_disk_unprotect(guid) < 0) {
        log_warning("Failed to remove twinvault protection for disk %s.", guid);
        return false;
    }
    return true;
}

// Without this disk its group cannot be snapshotted. FOUND stays set for the whole request: after one disk
// was found in a group, later disks are looked for only in the first group. Managers rely on that.
void clear_group_schedule(const std::string &guid, bool &found)
{
    const std::lock_guard held(g_client->lock);
    for (qel_group &group : g_client->group_list) {
        if (qel_has_member(group, guid)) {
            log_debug("Disk %s is in Group %s, clear cdpsch.", guid.c_str(), printable(group.name));
            found = true;
            qel_set_times(g_client, group, {});
            _unregister_grpsch(c_text(group.name));
        }
        if (found)
            break;
    }
}

void remove_disk_schedules(const std::string &guid)
{
    const std::lock_guard held(g_client->lock);
    qel_remove_schedules(g_client, guid.c_str());
    _unregister_cdpsch(guid.c_str());
    qel_save(g_client);
}

// True if every disk of the list is released.
bool release_disks(const std::list<optional_text> &disks)
{
    bool all_released = true;
    bool found_in_group = false;
    for (const optional_text &guid : disks) {
        if (!guid) {
            log_warning("Missing property SrcGUID, ignore !");
            continue;
        }
        if (!unprotect(guid->c_str())) {
            all_released = false;
            continue;
        }
        clear_group_schedule(*guid, found_in_group);
        remove_disk_schedules(*guid);
        qel_refresh_backups();
    }
    return all_released;
}
} // namespace

int del_backup(request *req)
{
    const int status = enter_command({.received = "Recv cmd: DEL_BACKUP"}, req);
    if (status != status_ok)
        return status;
    std::list<optional_text> disks;
    if (xml_to_released_disks(req->recv_xml.get(), &disks) < 0)
        return status_failure;
    if (release_disks(disks))
        return status_ok;
    // Managers expect an empty root here, and ask which disks are still protected.
    set_send_xml(*req, xml_to_text(xml_new_document("Tessaron")));
    return status_failure;
}

int del_backup_and_rescan(request *req)
{
    const int status = del_backup(req);
    kavdisk_rescan_dev(0);
    return status;
}
