#include "base/clock.h"
#include "base/log.h"
#include "base/xml.h"
#include "client/client.h"
#include "client/inventory.h"
#include "client/relationship_chain.h"
#include "commands/device_wait.h"
#include "commands/frame.h"
#include "commands/protection.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/backups.h"

#include <tw.h>

namespace {
using disk_list = std::list<qel_cdpsch>;

// Each disk is on exactly one of the three lists.
struct protection {
    disk_list requested;
    disk_list succeeded;
    disk_list failed;
    cdp_schedule schedule;
    std::string group;                  // "": single disks
    const qel_cdpsch *single = nullptr; // the disk that gets the schedule if there is no group
};

void move_to(disk_list &list, disk_list &from, disk_list::iterator disk)
{
    list.splice(list.end(), from, disk);
}

// --- Check ---------------------------------------------------------------------------------------------

bool wait_for_mirror(const optional_text &guid)
{
    for (unsigned pass = 0; pass < device_wait_passes; ++pass) {
        wait_for_devices(pass);
        if (qel_is_disk_present(guid)) {
            log_info("Mirror %s is finally online.", printable(guid));
            return true;
        }
    }
    return false;
}

// True if the disk can be protected; else false after a log line.
bool is_ready(const qel_cdpsch &disk)
{
    if (relationship_chain(c_text(disk.local_lun)).first) {
        log_error("Failed to apply TW protection, disk %s is already protected.", printable(disk.local_lun));
        return false;
    }
    if (!qel_is_disk_present(disk.local_lun)) {
        log_error("Failed to apply TW protection, disk %s is offline.", printable(disk.local_lun));
        return false;
    }
    if (!wait_for_mirror(disk.mirror_lun)) {
        log_error("Failed to apply TW protection, mirror %s is still offline.", printable(disk.mirror_lun));
        return false;
    }
    return true;
}

void check_disks(protection &wanted)
{
    for (auto disk = wanted.requested.begin(); disk != wanted.requested.end();) {
        const auto current = disk++;
        if (wanted.group.empty()) {
            log_info("Request doesn't contain group name, add backup for single disk.");
            wanted.single = &*current;
        } else {
            log_info("Request contains group name %s, add backup for group.", wanted.group.c_str());
            wanted.single = nullptr;
        }
        if (!is_ready(*current))
            move_to(wanted.failed, wanted.requested, current);
    }
    log_info("Finished scanning all the disks.");
}

// --- Apply and roll back ---------------------------------------------------------------------------------

bool protect(const qel_cdpsch &disk)
{
    log_info("Applying TW protection for disk %s.", printable(disk.local_lun));
    if (tw_disk_protect(c_text(disk.local_lun), c_text(disk.mirror_lun)) < 0) {
        log_error("Failed to apply twinvault protection (%s -> %s).", printable(disk.local_lun),
                  printable(disk.mirror_lun));
        return false;
    }
    log_info("Protection is applied successfully to local disk: %s.", printable(disk.local_lun));
    return true;
}

void protect_disks(protection &wanted)
{
    log_info("All the disks are ready for protection application.");
    while (!wanted.requested.empty()) {
        const auto disk = wanted.requested.begin();
        move_to(protect(*disk) ? wanted.succeeded : wanted.failed, wanted.requested, disk);
    }
}

// Rolls a group back if one of its disks failed: all of its disks are protected, or none.
void roll_back_group(protection &wanted)
{
    if (wanted.group.empty() || wanted.failed.empty() || wanted.succeeded.empty())
        return;
    log_info("Application of TW protection for group %s has failed, rollback.", wanted.group.c_str());
    for (; !wanted.succeeded.empty(); wanted.succeeded.pop_front()) {
        const char *guid = printable(wanted.succeeded.front().local_lun);
        log_info("Removing TW protection for disk %s.", guid);
        if (tw_disk_unprotect(guid) < 0)
            log_error("Failed to remove TW protection for disk %s.", guid);
    }
    log_info("Rollback complete.");
}

// --- Schedule ----------------------------------------------------------------------------------------------

void schedule_group(const protection &wanted, const cdp_times &times)
{
    log_info("Apply CDP schedule for group.");
    const std::lock_guard held(g_client->lock);
    for (qel_group &group : g_client->group_list) {
        if (group.name != wanted.group)
            continue;
        log_info("Found group %s, applying CDP schedule.", group.name->c_str());
        qel_set_times(g_client, group, times);
        qel_save(g_client);
        _register_for_grpsch(&group);
    }
}

void schedule_single_disk(const protection &wanted, const cdp_times &times)
{
    log_info("Apply CDP schedule for single disk.");
    if (!wanted.single)
        return;
    const std::lock_guard held(g_client->lock);
    qel_cdpsch &schedule = qel_add_schedule(g_client, {*wanted.single});
    qel_set_times(g_client, schedule, times);
    qel_save(g_client);
    _register_for_cdpsch(&schedule);
}

void apply_schedule(protection &wanted)
{
    const cdp_times times =
        cdp_times_from(wanted.schedule.start_time, wanted.schedule.interval, clock_wall());
    log_info("Received Schedule information Console StartTime: %lu, Interval: %u", times.con_start_time,
             times.timeout);
    if (!times.are_set()) {
        log_info("The request doesn't specify any CDP schedule.");
        return;
    }
    if (wanted.group.empty()) {
        schedule_single_disk(wanted, times);
        return;
    }
    schedule_group(wanted, times);
    if (!wanted.succeeded.empty())
        log_debug("free success list");
}

// --- Answer ------------------------------------------------------------------------------------------------

int answer_with_failures(request &req, const disk_list &failed)
{
    log_info("List containing failed backup relationships is not empty.");
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *list = xml_add_element(xml_root(doc), "BackupList");
    for (const qel_cdpsch &disk : failed) {
        xmlNode *device = xml_add_element(list, "Device");
        xml_add_attribute(device, "SrcGUID", disk.local_lun);
        xml_add_attribute(device, "rtnStatus", "1"); // with a small letter here, as managers expect
        xml_add_attribute(device, "DestGUID", disk.mirror_lun);
    }
    log_info("Dump failed backup relationships into XML document.");
    set_send_xml(req, xml_to_text(doc));
    log_info("Operation ADD_BACKUP failed.");
    return status_failure;
}
} // namespace

int add_backup(request *req)
{
    const int status =
        enter_command({.received = "Recv cmd: ADD_BACKUP",
                       .null_request = "Failed to parse null request.",
                       .not_adopted = "Failed to add backup relationships for unprotected client."},
                      req);
    if (status != status_ok)
        return status;
    protection wanted;
    if (xml_to_cdpsch_list(req->recv_xml.get(), &wanted.requested, &wanted.schedule, &wanted.group) < 0) {
        log_error("Failed to fetch backup info from xml");
        return status_unreadable_request;
    }
    check_disks(wanted);
    if (wanted.failed.empty())
        protect_disks(wanted);
    roll_back_group(wanted);
    log_info("Update backup relationships in global variables g_client.");
    qel_refresh_backups();
    if (!wanted.failed.empty())
        return answer_with_failures(*req, wanted.failed);
    apply_schedule(wanted);
    log_info("Operation ADD_BACKUP successed.");
    return status_ok;
}
