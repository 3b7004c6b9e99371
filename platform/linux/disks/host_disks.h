// The disks of this host and their partitions as the kernel sees them, from /sys/block (sysfs(5), and the
// kernel's Documentation/ABI/stable/sysfs-block). Nothing here opens a device.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct partition_facts {
    std::string name; // e.g. sdb1
    uint64_t number = 0;
    uint64_t start = 0;   // in sectors of 512 bytes
    uint64_t sectors = 0; // of 512 bytes
    dev_t device = 0;
};

struct disk_facts {
    std::string name;   // e.g. sdb
    std::string folder; // in /sys/block
    std::string path;   // e.g. /dev/sdb
    dev_t device = 0;
    std::optional<std::string> vendor; // blanks not trimmed
    std::optional<std::string> model;  // blanks not trimmed
    uint64_t sectors = 0;              // of 512 bytes
    std::vector<partition_facts> partitions;
};

// The kernel names of all disks, sorted. Memory disks (ram, zram), loop devices without a backing file,
// snapshots that are attached, and devices that the kernel hides are left out. Null with errno if /sys/block
// cannot be listed.
std::optional<std::vector<std::string>> host_disk_names();

// Null if the disk no longer exists.
std::optional<disk_facts> read_disk(const std::string &name);
