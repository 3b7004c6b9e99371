// Which snapshots a site wants to keep, by its rules in embedded.conf, and the removal of the others.
#pragma once

#include "platform/linux/agent/snapshot_list.h"
#include "platform/linux/state/keep_rule.h"

struct retention {
    listed_snapshot of;
    bool goes = false;
    std::string reason; // why it stays, or goes
};

// Snapshots of one disk, and those of one group, have a rule of their own. What is attached stays, and so
// does the newest one, whatever the rule is. What is gone, or cannot be looked at, does not count. ALL is
// ordered as list_snapshots does, and holds all snapshots of each disk and group.
std::vector<retention> apply_rules(std::vector<listed_snapshot> all, const keep_rules &rules);

struct prune_report {
    std::vector<std::string> removed;                             // names, the oldest first
    std::vector<std::pair<std::string, std::string>> not_removed; // and why
};

// Removes what the rules let go, of the snapshots for which IS_WANTED. Null, with errno, if the records
// cannot be read.
std::optional<prune_report> prune_snapshots(const std::function<bool(const snapshot &)> &is_wanted);

// The same for snapshots of the same disk or group as THIS one, with a log line for each. Asks no keeper if
// all of them stay. Never fails.
void prune_series_of(const snapshot &one);

// True if the stores of all members have room, after a removal of what need not stay. False with the reason
// in WHY. The keepers say how full a store is; one that does not say it counts as empty.
bool make_room_for(const snapshot &one, const unique_fd &lock, std::string *why);
