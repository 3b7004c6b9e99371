// What is on a disk, in words, for somebody who may be about to lose it.
#pragma once

#include "tools/common/disks.h"

#include <optional>
#include <string>

struct disk_contents {
    std::string name;
    std::string description; // one line: size, model, and what is on it
    uint64_t size = 0;       // bytes; 0 if nobody tells
    std::string mounted;     // "sdb1 is mounted on /srv"; "" if nothing of it is, or nobody tells
    bool has_file_systems = false;
    bool is_blank = false; // and somebody has looked
};

// As the report tells it.
disk_contents reported_contents(const disk_view &disk);

// As the kernel of this host and libblkid tell it; the disk itself is read. Null if no disk has that name.
std::optional<disk_contents> contents_here(const std::string &name);
