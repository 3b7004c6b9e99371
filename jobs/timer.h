// The timer queue: all periodic work as one list of jobs with due times, and the thread that fires them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

// The values are fixed; there is no 3.
enum job_type : int32_t { JOB_HEARTBEAT = 1, JOB_CDP_DISK = 2, JOB_CDP_GROUP = 4 };

struct job_status {
    int32_t type = 0;
    // Called when the job fires, with the job list locked: it may only start a thread. Heartbeat jobs are
    // handed null, CDP jobs their own record. A negative result is a failure.
    int32_t (*handler)(const job_status *job) = nullptr;
    // Atomic, since the heartbeat worker sets these two of its own job without the lock of the list.
    std::atomic<int64_t> next_time = 0; // due time, whole seconds of clock_monotonic
    std::atomic<uint32_t> backoff = 0;  // half of it, rounded down, is added in seconds to each re-arm
    uint32_t interval = 0;              // seconds
    int32_t released = 0;               // 1: to be freed at the timer thread's next pass
    std::string group;                  // consistency group (group CDP jobs)
    std::string local;                  // local disk (disk CDP jobs)
    std::string mirror;                 // mirror disk's GUID (disk CDP jobs)
};

// A new, zero job; null after a log line when memory is short.
std::unique_ptr<job_status> _alloc_job_status();

// Appends the job and wakes the timer. Returns 0, or -1 for a null job.
int job_add(std::unique_ptr<job_status> job);

// True when the heartbeat's job is on the list to stay. Released jobs are freed at once, so that a new one
// can take their place: the lookups below still find a released job, and it would pass for one.
bool heartbeat_stays();

// Unlinks a job; null, and a job that is not on the list, are ignored.
void job_remove(const job_status *job);

// Marks every job for the timer thread to free at its next pass. The timer is not woken.
void job_release_all();

// Frees every job now; for the way out of the process.
void job_free_all();

// The first job of that kind and name, or null. It outlives its place on the list for as long as it is held.
std::shared_ptr<job_status> job_find_cdp(const char *local);
std::shared_ptr<job_status> job_find_grp(const char *group);
std::shared_ptr<job_status> job_find_heartbeat();

// Takes back the heartbeat's back-off and has it fire at NEXT_TIME; wakes the timer.
void job_hurry_heartbeat(int64_t next_time);

int heartbeat_registered();

// 1 when the last heartbeat reached the manager.
int heartbeat_healthy();

// Has the timer thread look at the list now.
void wake_timer();

// Set by the timer thread each time before it waits; guarded by the mutex beside it.
extern std::mutex g_timeout_thread_running_lock;
extern int32_t g_timeout_thread_running;

// One pass over the list at the monotonic time NOW: frees released jobs, re-arms and fires due ones. Returns
// when to wake up next, at most 600 seconds from NOW.
int64_t timer_pass(int64_t now);

// Thread body; ARG is not used; never returns. Detaches itself.
void *_timeout_thread(void *arg);
