// The disks of a mirror relationship: found by GUID, whatever name the kernel gives them today.
#pragma once

#include "platform/linux/block_copy.h"
#include "platform/linux/state_fd.h"

#include <cstdint>
#include <optional>
#include <string>

struct located_disk {
    std::string guid;
    std::string name;       // e.g. sdb
    std::string path;       // e.g. /dev/sdb
    std::string sequence;   // the kernel's number of the device; "" where it gives none
    uint64_t size = 0;      // bytes
    bool is_usable = false; // the disk library lets it be touched
    bool is_storage_volume = false;
};

// Looks at every disk of this host. Among several of one GUID only one may be usable. Null with the reason.
std::optional<located_disk> locate_disk(const std::string &guid, std::string *why);

// Whether it has neither gone nor changed its size. Cheap: to be asked once a second.
bool is_still_there(const located_disk &disk);

// Both are for direct I/O, and certain to be the disk of that GUID. Closed with the reason in WHY.
state_fd open_source(const located_disk &disk, std::string *why);
// Nobody else may mount or claim the disk or one of its partitions while the descriptor is open.
state_fd open_mirror(const located_disk &disk, std::string *why);

// In bytes; 0 when it cannot be told.
uint64_t logical_block(int fd);

// What identifies a disk that is no volume of the storage system, and has to stay on it. Null for a volume.
std::optional<disk_signature> signature_to_keep(const located_disk &disk);
