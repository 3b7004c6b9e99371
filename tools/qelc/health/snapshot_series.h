// The snapshots of a host: for each disk or group those that were taken, those that failed and the next one.
#pragma once

#include "platform/linux/agent/snapshots.h"
#include "tools/qelc/health/mark_journal.h"
#include "tools/qelc/views/mirrors.h"

#include <ctime>
#include <map>
#include <string>
#include <utility>
#include <vector>

// All marks of one mirror or one group, as the journal tells of them.
struct mark_sums {
    time_t taken_at = 0; // the last one; 0: none
    time_t failed_at = 0;
    std::string why; // that one failed
    uint64_t failures = 0;
};

// By group, "" for none, and by the GUID of a mirror, "" for a group.
using mark_key = std::pair<std::string, std::string>;
using marks_by_key = std::map<mark_key, mark_sums>;

void add_mark(marks_by_key &all, const journal_mark &mark);

struct snapshot_series {
    std::string name; // of the disk or the group
    bool is_group = false;
    snapshot_times times; // 0: no schedule
    mark_sums marks;
    size_t kept = 0;
    std::string keeper; // of the last one that is kept; "" for none

    uint64_t next() const { return times.interval == 0 ? 0 : next_snapshot(times); }
};

// Every disk and group that has a schedule, a mark or a snapshot. A mirror that is none any more has its GUID
// as its name.
std::vector<snapshot_series> series_of(const std::vector<mirror_view> &mirrors, const marks_by_key &marks,
                                       const std::vector<snapshot> &kept);

// "sdb", "group day".
std::string title_of(const snapshot_series &one);
