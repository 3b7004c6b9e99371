// Finds the disks of a mirror relationship by GUID, whatever their current kernel names.
#pragma once

#include "base/fd.h"
#include "platform/linux/mirror/block_copy.h"

#include <cstdint>
#include <optional>
#include <string>

struct located_disk {
    std::string guid;
    std::string name;       // e.g. sdb
    std::string path;       // e.g. /dev/sdb
    std::string sequence;   // the kernel's sequence number of the device; "" if it has none
    uint64_t size = 0;      // bytes
    bool is_usable = false; // the disk library allows writing to it
    bool is_storage_volume = false;
};

// Searches all disks of this host. If several have the GUID, exactly one of them must be usable. Null with
// the reason.
std::optional<located_disk> locate_disk(const std::string &guid, std::string *why);

// True if the disk is still there with the same size. Cheap enough to be called every second.
bool is_still_there(const located_disk &disk);

// Both open for direct I/O and check that it is the disk with that GUID. Closed with the reason in WHY.
unique_fd open_source(const located_disk &disk, std::string *why);
// While the descriptor is open, nobody else can mount or claim the disk or one of its partitions.
unique_fd open_mirror(const located_disk &disk, std::string *why);

// In bytes; 0 if unknown.
uint64_t logical_block(int fd);

// The signature that identifies the disk and must stay on it. Null for a volume of the storage system.
std::optional<disk_signature> signature_to_keep(const located_disk &disk);
