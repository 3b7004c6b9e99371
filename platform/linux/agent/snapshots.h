// The records of snapshots that keepers keep, /var/lib/kavcdpagt/NAME.snapshot.
#pragma once

#include "base/fd.h"
#include "platform/linux/state/store.h"

#include <optional>
#include <string>
#include <vector>

struct snapshot_member {
    std::string mirror; // GUID without braces, as that of the source
    std::string source;
    std::string device; // the mirror's path at that time
    std::string keeper; // by name
    std::string place;  // where it is kept, in the keeper's own words
    std::string size;   // of the source, in bytes; the mirror may be larger

    bool operator==(const snapshot_member &) const = default;
};

// A record is written before anything is kept, so that nothing is ever kept that no record tells of.
struct snapshot {
    std::string name;
    std::string time;  // UTC, as 2026-11-22T14:05:09Z
    std::string group; // "" for a snapshot of one disk
    std::string note;
    bool is_complete = false; // false: it is being taken, or was not finished
    std::vector<snapshot_member> members;

    bool operator==(const snapshot &) const = default;
};

// The name of its group, or the GUID of its disk; "" if it has no members.
std::string whose(const snapshot &one);

// False after a log line, with errno.
bool store_snapshot(const snapshot &one);

// False after a log line; true if there is none.
bool forget_snapshot(const std::string &name);

// All records, the oldest first. Null after a log line, with errno.
std::optional<std::vector<snapshot>> load_snapshots(bad_files bad = bad_files::set_aside);

std::optional<snapshot> load_snapshot(const std::string &name);

// The right to change that snapshot, which lasts until the descriptor closes. Does not wait: closed with
// errno, EAGAIN if another thread or process has it.
unique_fd try_lock_snapshot(const std::string &name);
