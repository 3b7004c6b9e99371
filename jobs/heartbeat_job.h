// The heartbeat's job on the timer's list, and the switch that says whether heartbeats are wanted.
#pragma once

#include "jobs/job.h"

#include <cstdint>
#include <memory>
#include <mutex>

// 1 while heartbeats are wanted; guarded by the mutex beside it.
extern std::mutex g_heartbeat_running_lock;
extern int32_t g_heartbeat_running;

// The job, or null. A released job is found until it is freed.
std::shared_ptr<job_status> job_find_heartbeat();

// True when a heartbeat job is on the list that has not been released. Frees released jobs first.
bool heartbeat_stays();

// Resets the heartbeat's back-off and makes it due at NEXT_TIME; wakes the timer.
void job_hurry_heartbeat(int64_t next_time);

// 1 if job_find_heartbeat finds the job, else 0. Nothing here calls it; it is part of the room's interface.
int heartbeat_registered();

// 1 if the last heartbeat reached the manager, else 0.
int heartbeat_healthy();
