// Snapshots that keepers keep, for a person and for programs.
#pragma once

#include "platform/linux/agent/restores.h"
#include "platform/linux/agent/snapshot_list.h"
#include "tools/qelc/views/envelope.h"

// A restore that was not finished.
struct restore_view {
    restore_record record;
    std::string disk; // the kernel's name; the GUID if the host has no such disk
    bool is_running = false;
};

// Empty also if they cannot be read.
std::vector<restore_view> restores_to_show();

// The name of its group, or of its disk if TITLES has it, else the disk's GUID.
std::string owner_of(const snapshot &one, const std::map<std::string, std::string> &titles);

// When it was taken, in the time zone of this process.
std::string time_of(const snapshot &one);

std::string kept_page(const std::vector<listed_snapshot> &all, const std::vector<restore_view> &restores);

// An object of each, with its restores; sizes in bytes, null if unknown.
json_object kept_records(const std::vector<listed_snapshot> &all, const std::vector<restore_view> &restores);

// A line for each file system on the device or its partitions: how to mount it so that nothing is written and
// nothing clashes with the original. "" if there is none.
std::string mount_hints(const std::string &device);
