// The disk that a snapshot is restored to.
#pragma once

#include "base/fd.h"
#include "platform/linux/devices/disk_signature.h"
#include "tools/snapshots/attachment.h"
#include "tools/snapshots/contents.h"
#include "tools/volumes/host_view.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct restore_target {
    known_disk disk;
    std::string device;            // of the snapshot's member
    uint64_t size = 0;             // bytes that are restored
    std::string mirror;            // GUID of the mirror of this disk; "" if it has none
    std::vector<content> contents; // what would be overwritten
    disk_signature signature{};    // which it keeps
    unique_fd fd;                  // opened for direct I/O; the exclusive claim on it
    unique_fd lock;                // of restores to this disk
    unique_fd claim;               // tells the disk library that the claim is not a stranger's
};

// Finds the disk for member NUMBER of the snapshot, claims it, and looks what is on it. WHERE is as find_disk
// takes it. Null with the reason in WHY: it must not be overwritten, or cannot be.
std::optional<restore_target> open_target(const attached_snapshot &one, size_t number,
                                          const std::string &where, std::string *why);
