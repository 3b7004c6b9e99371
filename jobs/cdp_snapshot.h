// The snapshots that CDP schedules ask for: taken only when every disk concerned is level with its mirror.
#pragma once

#include "client/client.h"
#include "client/inventory.h"

struct job_status;

// How far the mirrors of a group's member are; anything but level is logged. Takes the inventory's lock.
mirror_level check_group_member(const qel_group_disk &member);

// The handlers of the jobs: each starts a worker thread. Returns 0, or -1 when none was started.
int _create_snapshot(const job_status *job);
int _create_grp_snapshot(const job_status *job);

// The worker threads' bodies. Each frees its argument, a std::string of its own: the GUID of the mirror, the
// name of the group. Both take the inventory's lock; that of a group holds the client record's lock to its
// end, also while the agent works.
void *mark_cdp_thread(void *mirror_guid);
void *mark_grp_cdp_thread(void *group_name);
