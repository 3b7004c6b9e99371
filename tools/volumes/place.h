// Where a new volume may lie, and what room there is.
#pragma once

#include "tools/volumes/host_view.h"
#include "tools/volumes/record.h"

#include <cstdint>
#include <string>

struct volume_place {
    volume_kind kind = volume_kind::file;
    std::string in;           // the folder, resolved, or VG
    std::string pool;         // VG/POOL of a thin volume
    uint64_t free = 0;        // bytes
    bool is_volatile = false; // its content is lost when the host is restarted
};

// Reads WHERE, a folder, VG or VG/POOL: a text that begins with / or . is a folder. Returns what is wrong, ""
// for nothing: it is not there, is read-only, or lies on DISK itself.
std::string read_place(const std::string &where, const disk_facts &disk, volume_place *place);
