// The timer queue: one list of jobs with due times, and the thread that fires them.
#pragma once

#include "jobs/job.h"

#include <cstdint>
#include <memory>
#include <mutex>

// Appends the job and wakes the timer. Returns 0, or -1 for a null job.
int job_add(std::unique_ptr<job_status> job);

// Removes a job from the list; null, or a job that is not on the list, is ignored.
void job_remove(const job_status *job);

// Marks every job for the timer thread to free at its next pass. The timer is not woken.
void job_release_all();

// Frees every job now; used when the process ends.
void job_free_all();

// The first job of that type and name, or null; a null name has none. A released job is found until it is
// freed. The caller may keep the job after it has left the list.
std::shared_ptr<job_status> job_find(int32_t type, const char *name);

// The same for the job of a disk's schedule, and of a group's.
std::shared_ptr<job_status> job_find_cdp(const char *local);
std::shared_ptr<job_status> job_find_grp(const char *group);

// The first job of that type and name ("" for the heartbeat) after all released jobs have been freed, or
// null.
std::shared_ptr<job_status> job_find_kept(int32_t type, const char *name);

// Resets the back-off of the first job of that type and name and makes it due at NEXT_TIME; wakes the timer.
// A job that is not on the list is ignored.
void job_hurry(int32_t type, const char *name, int64_t next_time);

// Wakes the timer thread, which then looks at the list.
void wake_timer();

// Set by the timer thread each time before it waits; guarded by the mutex beside it.
extern std::mutex g_timeout_thread_running_lock;
extern int32_t g_timeout_thread_running;

// One pass over the list at the monotonic time NOW: frees released jobs, re-arms and fires due jobs. Returns
// when to wake up next, at most 600 seconds after NOW.
int64_t timer_pass(int64_t now);

// Thread body; ARG is not used; never returns. Detaches itself.
void *_timeout_thread(void *arg);
