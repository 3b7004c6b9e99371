// What is on a disk, as libblkid recognises it. All functions take a descriptor open for reading; none
// writes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

enum class table_type { none, mbr, gpt, other };

struct disk_content {
    bool superblock = false; // a file system, RAID member, LVM volume, LUKS, swap ... on the whole disk
    table_type table = table_type::none;

    bool operator==(const disk_content &) const = default;
};

// Null if the disk cannot be read or its content is ambiguous.
std::optional<disk_content> read_content(int fd);

// The partition table, whatever else is on the disk.
table_type read_table_type(int fd);

struct table_entry {
    uint64_t start = 0; // in sectors of 512 bytes
    uint64_t number = 0;
    std::string guid;     // empty if it has no GUID
    uint64_t sectors = 0; // of 512 bytes
};

// The entries of the partition table; empty if there is none.
std::vector<table_entry> read_table(int fd);

// The type of the content of LENGTH bytes at OFFSET: a file system, or e.g. "swap", "crypto_LUKS",
// "LVM2_member". Null if nothing, or more than one thing, is recognised. LABEL gets its name, "" if it has
// none.
std::optional<std::string> read_file_system(int fd, uint64_t offset, uint64_t length,
                                            std::string *label = nullptr);
