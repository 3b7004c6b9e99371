// The bodies of the commands for snapshots, and for reading when they are taken.
#pragma once

#include "tools/protection_bodies.h"

#include <string>
#include <vector>

// A disk or a group of which a snapshot is to be taken now.
std::string snapshot_document(const snapshot_source &source);

// A disk or a group whose schedule is asked for.
std::string snapshot_source_document(const snapshot_source &source);

// Restored snapshot volumes that this host is to see.
std::string snapshot_volumes_document(const std::vector<std::string> &volumes);
