// The disks of this host and the kernel's idea of their partitions, from /sys/block (sysfs(5), and the
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

// The kernel names of everything that is a disk, sorted. Left out are memory (ram, zram), loop devices
// without a backing file, and devices that the kernel hides from users. Null, with errno, when /sys/block
// cannot be listed.
std::optional<std::vector<std::string>> host_disk_names();

// Null when the disk is gone.
std::optional<disk_facts> read_disk(const std::string &name);
