// The disks of this host, what lies on them, and which mirror which.
#pragma once

#include "platform/linux/disks/host_disks.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

struct known_disk {
    disk_facts facts;
    std::string guid; // "" if it has none, cannot be read, or is made of other devices or read-only
};

// Null if they cannot be listed.
std::optional<std::vector<known_disk>> known_disks();

// The disk that a person means with NAME: sdb, /dev/sdb, a link to it, or a GUID. Null with WHY.
std::optional<known_disk> find_disk(const std::string &name, std::string *why);

// The name of the disk with that GUID, sdb; the GUID itself if this host does not see it.
std::string name_of_disk(const std::string &guid);

// In bytes; 512 if the kernel does not tell.
uint64_t logical_block_of(const disk_facts &disk);

// True if the device, or the file system with this device number, has data on that disk: as a partition of
// it, or through device mapper, md or loop devices.
bool lies_on(dev_t device, const std::string &disk_name);

// The GUID of the disk for each GUID of a mirror. Null if that cannot be read.
std::optional<std::map<std::string, std::string>> sources_by_mirror();

// The GUID of a new signature, which neither a disk of this host nor any of the TAKEN ones has.
std::string unused_guid(const std::set<std::string> &taken);
