// The disks of a host, for a person and for programs.
#pragma once

#include "tools/common/disks.h"
#include "tools/qelc/left_out.h"
#include "tools/qelc/views/envelope.h"

#include <string>
#include <vector>

// A table of the disks, or "no disks", and one of those that are left out. On a terminal GUIDs are as short
// as they can be told apart.
std::string disks_page(const std::vector<disk_view> &disks, const std::vector<left_out_disk> &left_out);

// An object of each; sizes in bytes.
json_object disk_records(const std::vector<disk_view> &disks, const std::vector<left_out_disk> &left_out);
