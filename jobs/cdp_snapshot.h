// Scheduled snapshots. They are taken only if every disk concerned is level with its mirror.
#pragma once

#include "client/client.h"
#include "client/inventory.h"

struct job_status;

// How far the mirrors of a group's member are; logged unless they are level. Takes the inventory's lock.
mirror_level check_group_member(const qel_group_disk &member);

// The handlers of the jobs: each starts a worker thread. Returns 0, or -1 if that fails.
int _create_snapshot(const job_status *job);
int _create_grp_snapshot(const job_status *job);

// The worker threads' bodies. Each frees its argument, a std::string: the GUID of the mirror, or the name of
// the group. Both take the inventory's lock. The group's worker holds the client record's lock until it ends,
// also during the agent's call.
void *mark_cdp_thread(void *mirror_guid);
void *mark_grp_cdp_thread(void *group_name);
