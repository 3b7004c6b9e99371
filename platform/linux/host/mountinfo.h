// What is mounted, from /proc/self/mountinfo (proc(5)).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct mount_record {
    uint64_t id = 0;
    dev_t device = 0;   // anonymous (major 0) for file systems that may span several devices
    std::string point;  // where it is mounted
    std::string source; // what is mounted, e.g. /dev/sdb1
};

// One record per well-formed line; other lines are skipped.
std::vector<mount_record> parse_mountinfo(std::string_view text);

// The mounts of this process; empty if they cannot be read.
std::vector<mount_record> read_mounts();

// True if MOUNT mounts a file system on the block device DEVICE. An anonymous mount is recognised by its
// source, a device node.
bool mounts_device(const mount_record &mount, dev_t device);

// The bytes in use in the file system on DEVICE; 0 if it is not mounted where this process can see it.
uint64_t used_bytes(const std::vector<mount_record> &mounts, dev_t device);
