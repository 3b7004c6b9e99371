// What lies on a disk, or on a snapshot that is attached, and how it is mounted so that nothing is written.
// All of qelc looks at disks with this.
#pragma once

#include "platform/linux/disks/content.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct content {
    uint64_t partition = 0; // its number; 0: the whole device
    uint64_t offset = 0;    // bytes
    uint64_t size = 0;      // bytes
    std::string type;       // as libblkid names it: "ext4", "LVM2_member"; "" for nothing that it knows
    std::string label;      // "" for none

    // When it was mounted the last time, in seconds since the epoch, and where, on whatever host. Only ext2
    // to ext4 remember it; 0 and "" else, or if it never was.
    uint64_t last_mount = 0;
    std::string last_folder = "";
};

// What lies on the whole device, if anything does, and its partitions. They are read from the partition
// table: the kernel shows none of a logical volume. Null with the reason in WHY.
std::optional<std::vector<content>> contents_of(const std::string &device, std::string *why);

struct device_kind {
    table_type table = table_type::none;
    bool is_blank = false; // there is neither a table nor anything else that libblkid knows
};

// Null if it cannot be read.
std::optional<device_kind> kind_of(const std::string &device);

// False for what is no file system, such as swap, and for a part of something larger, such as LVM.
bool is_mountable(const content &one);

// Read-only alone is not enough: a journal would be replayed, and XFS refuses a second file system of the
// same UUID.
std::string mount_options(const std::string &type);

// "partition 2 (ext4 "data", 8.0 MiB)".
std::string text_of(const content &one);

// The kernel's name of a block device, whatever link leads to it.
std::string kernel_name_of(const std::string &device);

// The path of a partition, as soon as the host has it, which takes a moment after an attach. Null with the
// reason in WHY.
std::optional<std::string> partition_device(const std::string &device, uint64_t number, std::string *why);
