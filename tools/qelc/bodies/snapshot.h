// The bodies of the commands for snapshots, and for reading when they are taken.
#pragma once

#include "tools/qelc/bodies/protection.h"

#include <string>
#include <vector>

// A disk or a group to take a snapshot of now.
std::string snapshot_document(const snapshot_source &source);

// A disk or a group whose schedule is asked for.
std::string snapshot_source_document(const snapshot_source &source);

// Restored snapshot volumes that the host is to see.
std::string snapshot_volumes_document(const std::vector<std::string> &volumes);
