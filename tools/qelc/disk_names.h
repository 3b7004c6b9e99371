// The names by which people call the disks of a host.
#pragma once

#include "tools/common/disks.h"
#include "tools/qelc/views/mirrors.h"

#include <string>
#include <vector>

struct named_disk {
    std::string name; // of the kernel, e.g. sdb; the GUID if it is not known
    std::string guid;
    bool is_partition = false;
};

// What a report names: disks, partitions, and both ends of mirrors. With LOCAL the kernel of this host is
// asked for the names that the report does not have.
std::vector<named_disk> names_of_disks(const std::vector<disk_view> &disks,
                                       const std::vector<mirror_view> &mirrors, bool local);

// Adds those of the GUIDs that are not there yet.
void add_guids(std::vector<named_disk> &known, const std::vector<std::string> &guids);

// The disks that TEXT may mean, each once: by GUID, else by name or path, else by the beginning of its GUID.
// A partition with an MBR has a GUID that begins with that of its disk, so disks come before partitions
// there. Capital and small letters of a GUID are the same. With LOCAL a path may be a link, such as those in
// /dev/disk.
std::vector<named_disk> disks_meant(const std::vector<named_disk> &known, const std::string &text,
                                    bool local);

// True for a GUID in full: groups of 8, 4, 4, 4 and 12 hexadecimal digits.
bool is_guid(const std::string &text);
