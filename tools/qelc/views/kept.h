// Snapshots that keepers keep, for a person and for programs.
#pragma once

#include "platform/linux/agent/snapshot_list.h"

std::string kept_page(const std::vector<listed_snapshot> &all);

// One line: {"snapshots": [...]}, with sizes in bytes, null if unknown.
std::string kept_json(const std::vector<listed_snapshot> &all);

// A line for each file system on the device or its partitions: how to mount it so that nothing is written and
// nothing clashes with the original. "" if there is none.
std::string mount_hints(const std::string &device);
