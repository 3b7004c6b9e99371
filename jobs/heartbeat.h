// The heartbeat: while a manager has adopted this client, a report to it every five seconds.
#pragma once

#include "client/client.h"

#include <cstdint>
#include <mutex>

struct job_status;

// 1 while heartbeats are wanted; guarded by the mutex beside it.
extern std::mutex g_heartbeat_running_lock;
extern int32_t g_heartbeat_running;

// Adds the heartbeat's job unless there is one. Returns 0, or -1 after a log line.
int _register_for_heartbeat();

// The job's handler: starts a worker when heartbeats are wanted. Returns 0, or -1 when none was started.
int32_t process_heartbeat(const job_status *job);

// 1 when NEWER, as the manager sent it, has other addresses than the appointed manager; judged by the first
// ones. 0 for a record without GUID and, after a warning, for that of another manager. The caller holds
// g_client->lock.
int is_manager_changed(const qel_manager *newer);
