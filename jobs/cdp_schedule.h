// CDP schedules as timer jobs: a snapshot of a disk's mirror, or of a consistency group, at a fixed interval.
//
// The caller holds the client record's lock.
#pragma once

#include "client/client.h"

// Registers the schedule's job; an older one of the same disk is removed only afterwards, so that the disk
// always has one. A schedule without interval has no job. Returns 0, or -1.
int _register_for_cdpsch(const qel_cdpsch *schedule);

// The same for a group.
int _register_for_grpsch(const qel_group *group);

// Removes the job of the disk, or of the group, if there is one. Does nothing for null.
void _unregister_cdpsch(const char *local);
void _unregister_grpsch(const char *group);
