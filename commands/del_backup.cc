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

#include <kavdisk.h>
#include <tw.h>

namespace {
const xmlNode *backup_list(const xml_doc &doc)
{
    if (!doc) {
        log_error("Failed to parse XML request.");
        return nullptr;
    }
    const xmlNode *root = xml_root(doc);
    if (!root) {
        log_error("Failed to retrieve root element.");
        return nullptr;
    }
    if (!root->children || !xml_is_named(root->children, "BackupList")) {
        log_error("Failed to retrieve backup list.");
        return nullptr;
    }
    return root->children;
}

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

// A group cannot be snapshotted any more without its disk. FOUND stays set for the whole request: once a disk
// was in a group, later ones are looked for in the first group only, and managers count on that.
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

// True when every disk of the list could be released.
bool release_disks(const xmlNode *list)
{
    bool all_released = true;
    bool found_in_group = false;
    for (const xmlNode *entry : xml_children{list}) {
        if (entry->type != XML_ELEMENT_NODE)
            continue;
        const optional_text guid = xml_attribute(entry, "SrcGUID");
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
    const xml_doc doc = req->recv_xml ? xml_parse_text(req->recv_xml.get()) : nullptr;
    const xmlNode *list = backup_list(doc);
    if (!list)
        return status_failure;
    if (release_disks(list))
        return status_ok;
    // Managers expect the bare root here, and find out for themselves which disks are still protected.
    set_send_xml(*req, xml_to_text(xml_new_document("Tessaron")));
    return status_failure;
}

int del_backup_and_rescan(request *req)
{
    const int status = del_backup(req);
    kavdisk_rescan_dev(0);
    return status;
}
