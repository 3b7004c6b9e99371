#include "commands/snapshots.h"

#include "base/log.h"
#include "client/client.h"
#include "client/inventory.h"
#include "client/mirror_guid.h"
#include "commands/device_wait.h"
#include "commands/frame.h"
#include "jobs/cdp_snapshot.h"
#include "jobs/device_group.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/snapshots.h"

#include <kavagt.h>

namespace {
// What differs between the manager's command and the agent's. The agent is not told what went wrong.
struct snapshot_command {
    command_frame frame;
    int (*parse)(const char *text, snap_request *snap);
    const char *complete;
    int failed; // statuses
    int behind;
    int no_backup;
};

constexpr snapshot_command manager_command = {
    .frame = {.received = "Recv cmd: CREATE_SNAPSHOT",
              .null_request = "Error: empty XML request.",
              .not_adopted = "Error: client is not protected by a server."},
    .parse = xml_to_snap_guid,
    .complete = "Complete work: CREATE_SNAPSHOT",
    .failed = status_snapshot_failed,
    .behind = status_not_synchronised,
    .no_backup = status_no_backup};
constexpr snapshot_command agent_command = {.frame = agent_frame("Recv cmd: KAV_CREATE_CDP"),
                                            .parse = xml_kav_to_snapshot,
                                            .complete = "Complete work: KAV_CREATE_CDP",
                                            .failed = status_failure,
                                            .behind = status_failure,
                                            .no_backup = status_failure};

// --- One disk --------------------------------------------------------------------------------------------

optional_text find_mirror(const std::string &guid)
{
    const auto held = qel_inventory_lock();
    optional_text mirror = get_mirror_guid_of_local(guid.c_str(), &g_inventory);
    if (!mirror)
        log_error("Failed to get mirror guid of %s.", guid.c_str());
    return mirror;
}

mirror_level check_mirror(const std::string &mirror)
{
    const auto held = qel_inventory_lock();
    const mirror_level level = qel_mirror_level(&qel_backup_t::dest_guid, mirror);
    if (level == mirror_level::behind)
        log_error("Snapshot creation failed, source disk is not synchronized yet.");
    else if (level == mirror_level::none) // removed since it was found
        log_error("Failed to find backup relationship, snapshot creation canceled.");
    return level;
}

int status_of(const snapshot_command &command, mirror_level level)
{
    if (level == mirror_level::level)
        return status_ok;
    return level == mirror_level::behind ? command.behind : command.no_backup;
}

int snap_disk_now(const snapshot_command &command, const std::string &guid)
{
    log_info("Creating snapshot for single disk: %s.", guid.c_str());
    const optional_text mirror = find_mirror(guid);
    if (!mirror)
        return status_failure;
    const int status = status_of(command, check_mirror(*mirror));
    if (status != status_ok)
        return status;
    log_info("Disk status check finished.");
    if (kav_call_disk_markcdp(("{" + *mirror + "}").c_str()) < 0) {
        log_error("Failed to create snapshot for disk %s.", guid.c_str());
        return command.failed;
    }
    log_info("Single disk snapshot creation is completed successfully.");
    return status_ok;
}

// --- A group ---------------------------------------------------------------------------------------------

int snap_group_held(const snapshot_command &command, const qel_group &group)
{
    log_info("Found group %s.", printable(group.name));
    for (const qel_group_disk &member : group.member_list) {
        const int status = status_of(command, check_group_member(member));
        if (status != status_ok)
            return status;
    }
    const device_group devices = _bkup_grp_to_cdp_kavgrp(&group);
    if (!devices) {
        log_error("Failed to convert backup_group to kavdevgrp.");
        return status_failure;
    }
    if (kav_call_grp_markcdp(devices.get()) < 0) {
        log_error("Failed to create snapshot for group: %s.", printable(group.name));
        return command.failed;
    }
    return status_ok;
}

int snap_group_now(const snapshot_command &command, const std::string &name)
{
    {
        const std::lock_guard held(g_client->lock);
        log_info("Creating snapshot for group: %s.", name.c_str());
        const qel_group *group = qel_find_group(g_client, name);
        const int status = group ? snap_group_held(command, *group) : status_ok;
        if (status != status_ok)
            return status;
    }
    log_info("Group snapshot creation is completed successfully.");
    return status_ok;
}

int take_snapshot(const snapshot_command &command, const request *req)
{
    int status = enter_command(command.frame, req);
    if (status != status_ok)
        return status;
    snap_request snap;
    if (command.parse(req->recv_xml.get(), &snap) < 0) {
        log_error("Failed to parse snapshot creation request.");
        return status_unreadable_request;
    }
    status = snap.source_type == snap_disk ? snap_disk_now(command, *snap.source)
                                           : snap_group_now(command, *snap.source);
    if (status == status_ok)
        log_info("%s", command.complete);
    return status;
}

// --- Restored volumes --------------------------------------------------------------------------------------

bool is_online(const std::string &volume)
{
    if (!qel_has_disk(volume))
        return false;
    log_info("Volume %s is online.", volume.c_str());
    return true;
}

void drop_volumes_online(std::list<std::string> &volumes)
{
    qel_rescan_inventory();
    const auto held = qel_inventory_lock();
    volumes.remove_if(is_online);
}

// Volumes found by the last look count, but there is no log line for them.
void wait_for_volumes(std::list<std::string> &volumes)
{
    for (unsigned pass = 0; pass < device_wait_passes; ++pass) {
        if (volumes.empty()) {
            log_info("All the specified volumes are correctly restored!");
            return;
        }
        wait_for_devices(pass);
        drop_volumes_online(volumes);
    }
}
} // namespace

int create_snapshot(request *req)
{
    return take_snapshot(manager_command, req);
}

int kav_create_cdp(request *req)
{
    return take_snapshot(agent_command, req);
}

int snap_restore(request *req)
{
    const int status = enter_command({.received = "Recv cmd: SNAP_RESTORE",
                                      .null_request = "Null request, failed to restore snapshot(s)."},
                                     req);
    if (status != status_ok)
        return status;
    std::list<std::string> volumes;
    if (xml_to_snap_vol_guid(req->recv_xml.get(), &volumes) < 0) {
        log_error("Failed to parse XML request for snapshot restoration.");
        return status_unreadable_request;
    }
    wait_for_volumes(volumes);
    if (volumes.empty()) {
        log_debug("Restore snapshot done");
        return status_ok;
    }
    log_error("Some of the specified volumes are not correctly restored!");
    for (const std::string &volume : volumes)
        log_error("Volume %s is not restored.", volume.c_str());
    return status_failure;
}
