// Mounting what is on a snapshot, read-only, and ending that again.
#pragma once

#include "tools/snapshots/attachment.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct mount_wish {
    std::string name;                  // of the snapshot
    std::string folder;                // must be there and be empty
    std::optional<uint64_t> partition; // null: the only file system that there is
};

// Attaches the snapshot, unless it is, and mounts it; the members of a group in sub-folders, which this makes
// and names after the disks. No journal is replayed. Returns where it is mounted; null with the reason in
// WHY, and nothing is left of the attempt then.
std::optional<std::vector<std::string>> mount_snapshot(const mount_wish &wish, std::string *why);

// Unmounts everything that is mounted from the snapshot's devices, whoever has mounted it, and detaches them.
// False with the reason in WHY.
bool unmount_snapshot(const std::string &name, std::string *why);

// The path, without links, of a folder that something can be mounted on; "" with the reason in WHY.
std::string empty_folder(const std::string &folder, std::string *why);
