#include "jobs/cdp_schedule.h"

#include "base/clock.h"
#include "base/log.h"
#include "jobs/cdp_snapshot.h"
#include "jobs/timer.h"

namespace {
// The next run on the monotonic clock, so that later changes of the wall clock do not move it.
int64_t due_time(uint64_t next_run)
{
    return static_cast<int64_t>(static_cast<uint64_t>(clock_monotonic()) + next_run -
                                static_cast<uint64_t>(clock_wall()));
}

std::unique_ptr<job_status> new_disk_job(const qel_cdpsch &schedule)
{
    std::unique_ptr<job_status> job = _alloc_job_status();
    if (!job)
        return nullptr;
    job->type = JOB_CDP_DISK;
    job->handler = _create_snapshot;
    job->interval = schedule.cdp_timeout;
    job->next_time = due_time(schedule.cdp_start_time);
    job->local = schedule.local_lun.value_or("");
    job->mirror = schedule.mirror_lun.value_or("");
    return job;
}

std::unique_ptr<job_status> new_group_job(const qel_group &group)
{
    std::unique_ptr<job_status> job = _alloc_job_status();
    if (!job)
        return nullptr;
    job->type = JOB_CDP_GROUP;
    job->handler = _create_grp_snapshot;
    job->interval = group.cdp_timeout;
    job->next_time = due_time(group.cdp_start_time);
    job->group = group.name.value_or("");
    return job;
}
} // namespace

int _register_for_cdpsch(const qel_cdpsch *schedule)
{
    if (!schedule)
        return -1;
    if (!schedule->local_lun) {
        log_error("Unknown disk name");
        return -1;
    }
    log_info("Register new CDP schdule (local: %s, mirror: %s, console start time: %lu, start time: %lu, "
             "interval: %u.",
             schedule->local_lun->c_str(), printable(schedule->mirror_lun), schedule->cdp_con_start_time,
             schedule->cdp_start_time, schedule->cdp_timeout);
    if (schedule->cdp_timeout == 0) { // the job would be due again as soon as it has fired
        log_info("CDP schedule of disk %s has no interval, it is not run.", schedule->local_lun->c_str());
        _unregister_cdpsch(schedule->local_lun->c_str());
        return 0;
    }
    log_info("Looking for old CDP schedule.");
    const std::shared_ptr<job_status> old = job_find_cdp(schedule->local_lun->c_str());
    std::unique_ptr<job_status> job = new_disk_job(*schedule);
    if (!job) {
        log_error("Failed to allocated memory for new CDP schedule.");
        return -1;
    }
    if (job_add(std::move(job)) != 0) {
        log_error("Failed to register new CDP schedule.");
        return -1;
    }
    log_info("New CDP schedule registered.");
    if (old) {
        log_info("Remove old CDP schedule.");
        job_remove(old.get());
    }
    return 0;
}

int _register_for_grpsch(const qel_group *group)
{
    if (!group)
        return -1;
    const std::shared_ptr<job_status> old = job_find_grp(c_text(group->name));
    if (group->cdp_timeout != 0 && job_add(new_group_job(*group)) != 0)
        return -1;
    job_remove(old.get());
    return 0;
}

void _unregister_cdpsch(const char *local)
{
    job_remove(job_find_cdp(local).get());
}

void _unregister_grpsch(const char *group)
{
    job_remove(job_find_grp(group).get());
}
