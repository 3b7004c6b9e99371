#include "jobs/timer.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "client/scan_thread.h"
#include "jobs/job_list.h"

#include <pthread.h>

#include <algorithm>

std::mutex g_timeout_thread_running_lock;
int32_t g_timeout_thread_running = 0;

namespace {
constexpr int64_t longest_wait = 600; // seconds

std::mutex job_list_lock; // guards the list and its jobs, except the two atomic fields
job_list jobs;

// Created at first use: a job may be added before the timer thread runs.
pthread_cond_t *timeout_cond()
{
    static clock_cond added;
    return &added.cond;
}

void reap_released()
{
    const std::lock_guard guard(job_list_lock);
    jobs.erase_released();
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

// Re-armed from now, not from its due time: missed periods are skipped.
void fire_if_due(job_status &job, int64_t now, int64_t period)
{
    if (job.next_time > now)
        return;
    job.next_time = now + period;
    int32_t result = -1;
    end_at_shortage([&] { result = dispatch(job); });
    if (result < 0)
        log_error("Failed to process job");
}

// Handlers run with the list locked, so they must only start a thread.
int64_t fire_due(int64_t now)
{
    int64_t wake = now + longest_wait;
    int count = 0;
    const std::lock_guard guard(job_list_lock);
    for (const auto &job : jobs) {
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

int job_add(std::unique_ptr<job_status> job)
{
    if (!job)
        return -1;
    {
        const std::lock_guard guard(job_list_lock);
        jobs.append(std::move(job));
    }
    wake_timer();
    return 0;
}

void job_remove(const job_status *job)
{
    if (!job)
        return;
    const std::lock_guard guard(job_list_lock);
    jobs.erase(job);
}

void job_release_all()
{
    const std::lock_guard guard(job_list_lock);
    for (const auto &job : jobs)
        job->released = 1;
}

void job_free_all()
{
    const std::lock_guard guard(job_list_lock);
    jobs.clear();
}

std::shared_ptr<job_status> job_find(int32_t type, const char *name)
{
    if (!name)
        return nullptr;
    const std::lock_guard guard(job_list_lock);
    return jobs.find(type, name);
}

std::shared_ptr<job_status> job_find_cdp(const char *local)
{
    return job_find(JOB_CDP_DISK, local);
}

std::shared_ptr<job_status> job_find_grp(const char *group)
{
    return job_find(JOB_CDP_GROUP, group);
}

std::shared_ptr<job_status> job_find_kept(int32_t type, const char *name)
{
    const std::lock_guard guard(job_list_lock);
    jobs.erase_released();
    return jobs.find(type, name);
}

void job_hurry(int32_t type, const char *name, int64_t next_time)
{
    {
        const std::lock_guard guard(job_list_lock);
        if (const auto job = jobs.find(type, name)) {
            job->backoff = 1;
            job->next_time = next_time;
        }
    }
    wake_timer();
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
