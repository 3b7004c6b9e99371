// What a mark does with keepers: it finds one for each mirror, has all of them keep theirs, or none.
#pragma once

#include "platform/linux/agent/devices.h"
#include "platform/linux/agent/snapshots.h"

struct snapshot_plan {
    snapshot record;                 // its members are the mirrors that a keeper will keep
    std::vector<std::string> unkept; // GUIDs of those that none will, and why not
    unique_fd lock;                  // of the name
    bool is_begun = false;           // something may have been kept
};

// GROUP: "" for a mark of one disk. A mirror that is a volume of the storage system is kept there, and is
// neither a member nor unkept. Null with the reason in WHY.
std::optional<snapshot_plan> plan_snapshot(const std::string &group,
                                           const std::vector<marked_device> &mirrors, std::string *why);

// Has each keeper keep its member, and looks for what it kept. False with the reason in WHY; the caller then
// drops the snapshot.
bool keep_members(snapshot_plan *plan, std::string *why);

// From here on the snapshot counts as taken. False with the reason in WHY.
bool complete_snapshot(snapshot_plan *plan, std::string *why);

// Undoes what was kept of a snapshot that is not complete, in reverse order. LOCK is that of its name. Adds
// what cannot be undone to WHY; the record then stays, and the next mark of one of its mirrors tries again.
void drop_snapshot(const snapshot &record, const unique_fd &lock, std::string *why);

// Drops the snapshots of these mirrors that a process began and did not live to finish. The caller holds the
// lock of the marks of these mirrors.
void drop_unfinished(const std::vector<std::string> &mirrors);
