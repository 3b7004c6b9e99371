// The mounted file systems on disks, to be frozen.
#pragma once

#include "base/fd.h"

#include <optional>
#include <string>
#include <vector>

struct mounted_file_system {
    std::string point; // one of the places where it is mounted
    unique_fd file;    // something of it, open
};

// Opens each file system that this process sees mounted on one of DISKS (nodes), on their partitions, or on
// what is stacked on these. Null with the reason in WHY if one of them cannot be opened, or must never be
// frozen: one that the host itself needs, or on which a file of NEEDED is.
std::optional<std::vector<mounted_file_system>> open_file_systems(const std::vector<std::string> &disks,
                                                                  const std::vector<std::string> &needed,
                                                                  std::string *why);
