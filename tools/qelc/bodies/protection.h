// The bodies of the commands for protection: disks with their mirrors, and schedules of snapshots.
#pragma once

#include "base/text.h"

#include <cstdint>
#include <string>
#include <vector>

// When snapshots are taken; both 0: never.
struct snapshot_times {
    uint64_t start = 0;    // seconds since the epoch
    uint32_t interval = 0; // seconds
};

// A disk of the host and its mirror.
struct mirror_pair {
    std::string source;
    std::string mirror;
};

// What snapshots are taken of: a group by its name, or a disk by its GUID.
struct snapshot_source {
    bool is_group = false;
    std::string name;
};

// The value that tells in a document which of the two it is.
const char *source_type(const snapshot_source &source);

// Mirrors have their GUIDs wrapped in documents; some commands wrap other GUIDs, too.
std::string wrap_guid(const std::string &guid);
std::string unwrap_guid(const std::string &text);

// Disks to protect, and when snapshots of them are taken.
std::string protection_document(const std::vector<mirror_pair> &pairs, const snapshot_source &source,
                                const snapshot_times &times);

// A list of protected disks.
std::string disk_list_document(const std::vector<std::string> &sources);

// A new schedule for a disk or a group.
std::string schedule_document(const snapshot_source &source, const snapshot_times &times);
