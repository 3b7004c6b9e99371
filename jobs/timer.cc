#include "jobs/timer.h"

#include "base/clock.h"
#include "base/log.h"
#include "client/scan_thread.h"

#include <pthread.h>

#include <algorithm>
#include <list>
#include <new>

std::mutex g_timeout_thread_running_lock;
int32_t g_timeout_thread_running = 0;

namespace {
constexpr int64_t longest_wait = 600; // seconds

std::mutex job_list_lock; // guards the list and the jobs on it, but for the heartbeat's two atomic fields
std::list<std::shared_ptr<job_status>> job_list; // shared with a heartbeat worker, for as long as it works

// Made at first use: a job may be added before the timer thread runs.
pthread_cond_t *timeout_cond()
{
    static clock_cond added;
    return &added.cond;
}

// The caller holds job_list_lock.
template <class Predicate>
std::shared_ptr<job_status> find_held(Predicate wanted)
{
    const auto found =
        std::find_if(job_list.begin(), job_list.end(), [&](const auto &job) { return wanted(*job); });
    return found == job_list.end() ? nullptr : *found;
}

template <class Predicate>
job_status *find_job(Predicate wanted)
{
    const std::lock_guard guard(job_list_lock);
    return find_held(wanted).get();
}

bool is_heartbeat(const job_status &job)
{
    return job.type == JOB_HEARTBEAT;
}

void reap_released()
{
    const std::lock_guard guard(job_list_lock);
    job_list.remove_if([](const auto &job) { return job->released != 0; });
}

int32_t dispatch(const job_status &job)
{
    switch (job.type) {
    case JOB_HEARTBEAT:
        wake_scan_thread();
        return job.handler(nullptr);
    case JOB_CDP_DISK:
        log_info("Background task: CDP task for disk %s - %s fired!", job.local.c_str(), job.mirror.c_str());
        return job.handler(&job);
    case JOB_CDP_GROUP:
        log_info("Background task: CDP task for group %s fired!", job.group.c_str());
        return job.handler(&job);
    default:
        log_error("Unkown job type: %d", job.type);
        return -1;
    }
}

// Re-armed from now, not from when it was due: missed periods are not caught up.
void fire_if_due(job_status &job, int64_t now, int64_t period)
{
    if (job.next_time > now)
        return;
    job.next_time = now + period;
    if (dispatch(job) < 0)
        log_error("Failed to process job");
}

// Handlers run with the list locked, which is why they only start a thread.
int64_t fire_due(int64_t now)
{
    int64_t wake = now + longest_wait;
    int count = 0;
    const std::lock_guard guard(job_list_lock);
    for (const auto &job : job_list) {
        const int64_t period = int64_t{job->interval} + (job->backoff >> 1);
        log_debug("[#%d]%d next: %d, timeout: %d(%s)\n", count, job->type,
                  static_cast<int>(job->next_time - now), static_cast<int>(period), job->mirror.c_str());
        ++count;
        fire_if_due(*job, now, period);
        wake = std::min(wake, job->next_time.load());
    }
    return wake;
}

void wait_until(int64_t wake)
{
    log_debug("Waiting for timeout(%d second) or condition", static_cast<int>(wake - clock_monotonic()));
    {
        const std::lock_guard guard(g_timeout_thread_running_lock);
        g_timeout_thread_running = 1;
        clock_cond_wait(timeout_cond(), g_timeout_thread_running_lock.native_handle(), wake);
    }
    log_debug("pthread_cond_timedwait() unblocked");
}
} // namespace

std::unique_ptr<job_status> _alloc_job_status()
{
    std::unique_ptr<job_status> job(new (std::nothrow) job_status);
    if (!job)
        log_error("Failed to allocate memory for job_status");
    return job;
}

int job_add(std::unique_ptr<job_status> job)
{
    if (!job)
        return -1;
    {
        const std::lock_guard guard(job_list_lock);
        job_list.push_back(std::move(job));
    }
    wake_timer();
    return 0;
}

bool job_stays(int32_t type)
{
    const std::lock_guard guard(job_list_lock);
    job_list.remove_if([type](const auto &job) { return job->type == type && job->released != 0; });
    return find_held([type](const job_status &job) { return job.type == type; }) != nullptr;
}

void job_remove(const job_status *job)
{
    const std::lock_guard guard(job_list_lock);
    const auto found = std::find_if(job_list.begin(), job_list.end(),
                                    [job](const auto &linked) { return linked.get() == job; });
    if (found != job_list.end())
        job_list.erase(found);
}

void job_release_all()
{
    const std::lock_guard guard(job_list_lock);
    for (const auto &job : job_list)
        job->released = 1;
}

void job_free_all()
{
    const std::lock_guard guard(job_list_lock);
    job_list.clear();
}

job_status *job_find_cdp(const char *local)
{
    if (!local)
        return nullptr;
    return find_job(
        [local](const job_status &job) { return job.type == JOB_CDP_DISK && job.local == local; });
}

job_status *job_find_grp(const char *group)
{
    if (!group)
        return nullptr;
    return find_job(
        [group](const job_status &job) { return job.type == JOB_CDP_GROUP && job.group == group; });
}

job_status *job_find_heartbeat()
{
    return find_job(is_heartbeat);
}

std::shared_ptr<job_status> job_hold_heartbeat()
{
    const std::lock_guard guard(job_list_lock);
    return find_held(is_heartbeat);
}

void job_hurry_heartbeat(int64_t next_time)
{
    {
        const std::lock_guard guard(job_list_lock);
        if (const auto job = find_held(is_heartbeat)) {
            job->backoff = 1;
            job->next_time = next_time;
        }
    }
    wake_timer();
}

int heartbeat_registered()
{
    return job_find_heartbeat() ? 1 : 0;
}

int heartbeat_healthy()
{
    return find_job([](const job_status &job) { return is_heartbeat(job) && job.backoff == 1; }) ? 1 : 0;
}

void wake_timer()
{
    pthread_cond_signal(timeout_cond());
}

int64_t timer_pass(int64_t now)
{
    reap_released();
    return fire_due(now);
}

void *_timeout_thread(void *)
{
    pthread_detach(pthread_self());
    for (;;)
        wait_until(timer_pass(clock_monotonic()));
}
