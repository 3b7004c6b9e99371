// The heartbeat: while a manager has adopted this client, a report to it every five seconds.
#pragma once

#include "client/client.h"

#include <cstdint>

struct job_status;

// Adds the heartbeat's job unless it exists. Returns 0, or -1 after a log line.
int _register_for_heartbeat();

// The job's handler: starts a worker if heartbeats are wanted. Returns 0, or -1 if it did not start one.
int32_t process_heartbeat(const job_status *job);

// 1 if the first address of NEWER, as the manager sent it, differs from that of the manager in the record,
// else 0. 0 for a record without GUID and, after a warning, for another manager. The caller holds
// g_client->lock.
int is_manager_changed(const qel_manager *newer);
