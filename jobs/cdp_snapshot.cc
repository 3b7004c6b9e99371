#include "jobs/cdp_snapshot.h"

#include "base/log.h"
#include "base/shortage.h"
#include "base/thread.h"
#include "client/client.h"
#include "client/inventory.h"
#include "jobs/device_group.h"
#include "jobs/job.h"

#include <kavagt.h>
#include <kavdev.h>

#include <memory>
#include <string>

namespace {
// Passes a copy to the worker: the job may be freed before the worker reads it.
int start_worker(void *(*body)(void *), const std::string &name)
{
    auto argument = std::make_unique<std::string>(name);
    pthread_t thread;
    if (start_thread(&thread, body, argument.get()) != 0)
        return -1;
    static_cast<void>(argument.release());
    pthread_detach(thread);
    return 0;
}

std::unique_ptr<std::string> take_argument(void *argument)
{
    return std::unique_ptr<std::string>(static_cast<std::string *>(argument));
}

// True if the disk is level with this mirror; else false after a log line.
bool is_mirror_level(const std::string &mirror)
{
    const auto held = qel_inventory_lock();
    switch (qel_mirror_level(&qel_backup_t::dest_guid, mirror)) {
    case mirror_level::behind:
        log_error("Snapshot creation failed, source disk is not synchronized yet, abort.");
        return false;
    case mirror_level::none:
        log_error("Unable to find backup relationship, snapshot creation canceled.");
        return false;
    default:
        return true;
    }
}

bool snap_group(const qel_group &group)
{
    for (const qel_group_disk &member : group.member_list) {
        if (check_group_member(member) != mirror_level::level)
            return false;
    }
    log_info("CDP Schedule: Group %s found.", printable(group.name));
    const device_group devices = _bkup_grp_to_cdp_kavgrp(&group);
    if (!devices) {
        log_error("CDP Schedule: Failed to convert backup_group to kavdevgrp.");
        return false;
    }
    if (kav_call_grp_markcdp(devices.get()) < 0) {
        log_error("CDP Schedule: Failed to create snapshot for group %s.", printable(group.name));
        return false;
    }
    return true;
}

// Takes a snapshot of every group of that name; stops at the first failure.
bool snap_groups(const std::string &name)
{
    const std::lock_guard held(g_client->lock);
    log_info("CDP Schedule: Searching for group %s.", name.c_str());
    for (const qel_group &group : g_client->group_list) {
        if (group.name == name && !snap_group(group))
            return false;
    }
    return true;
}
} // namespace

mirror_level check_group_member(const qel_group_disk &member)
{
    const auto held = qel_inventory_lock();
    const mirror_level level = qel_mirror_level(&qel_backup_t::src_guid, member.disk_guid);
    if (level == mirror_level::behind)
        log_error("Disk %s is not synchronized yet, snapshort creation canceled.",
                  printable(member.disk_guid));
    else if (level == mirror_level::none)
        log_error("Unable to find backup relationship of disk %s, snapshot creation canceled.",
                  printable(member.disk_guid));
    return level;
}

int _create_snapshot(const job_status *job)
{
    if (!job)
        return -1;
    log_info("Mark cdp for %s", job->mirror.c_str());
    return start_worker(mark_cdp_thread, job->mirror);
}

int _create_grp_snapshot(const job_status *job)
{
    if (!job)
        return -1;
    log_debug("Launch thread to create snapshot for group %s.", job->group.c_str());
    return start_worker(mark_grp_cdp_thread, job->group);
}

void *mark_cdp_thread(void *mirror_guid)
{
    const std::unique_ptr<std::string> mirror = take_argument(mirror_guid);
    if (!mirror) {
        log_error("CDP Schedule: Invalid mirror GUID: %s.", "(null)");
        return nullptr;
    }
    std::string braced;
    if (!end_at_shortage([&] { braced = "{" + *mirror + "}"; }))
        return nullptr;
    log_info("CDP Schedule: Creating snapshot for mirror :%s.", braced.c_str());
    bool is_level = false;
    end_at_shortage([&] { is_level = is_mirror_level(*mirror); });
    if (!is_level)
        return nullptr;
    log_info("Disk status check finished.");
    log_debug("Start to create snapshot");
    if (kav_call_disk_markcdp(braced.c_str()) < 0) {
        log_error("CDP Schedule: Failed to create snapshot for %s.", braced.c_str());
        kav_device_probe_all(1);
    }
    log_debug("Complete snapshot");
    return nullptr;
}

void *mark_grp_cdp_thread(void *group_name)
{
    const std::unique_ptr<std::string> name = take_argument(group_name);
    if (!name) {
        log_error("CDP Schedule: CDP creation aborted, null parameter.");
        return nullptr;
    }
    end_at_shortage([&] {
        if (snap_groups(*name))
            log_info("CDP Schedule: Snapshot is complete successfully.");
    });
    return nullptr;
}
