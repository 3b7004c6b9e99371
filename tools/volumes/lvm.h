// LVM volumes and groups, through LVM's own tools. Sizes are in bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Names are VG, VG/LV or VG/POOL. Where WHY is given it says what is wrong.

// True for one or two names that LVM's tools take as names.
bool is_lvm_name(const std::string &name, size_t parts);

// What is free in a volume group, or in a thin pool.
std::optional<uint64_t> lvm_free(const std::string &name, std::string *why);

// The devices that a volume group lies on.
std::optional<std::vector<std::string>> lvm_devices(const std::string &group, std::string *why);

struct lvm_volume {
    bool is_active = false;
    std::string tags; // with commas between them
    std::string pool; // VG/POOL; "" for a volume that is not thin
    uint64_t size = 0;
    uint64_t taken = 0;        // of the pool, or the size
    bool is_pool_full = false; // the data or the metadata
};

enum class lvm_found { found, missing, failed };

// MISSING: the group is there, and has no such volume. FAILED comes with WHY.
lvm_found find_lvm(const std::string &volume, lvm_volume *facts, std::string *why);

// A new volume with a tag; thin if a POOL is given. Returns what is wrong, "" for nothing.
std::string create_lvm(const std::string &volume, const std::string &pool, uint64_t size,
                       const std::string &tag);

// Returns what is wrong, "" for nothing.
std::string remove_lvm(const std::string &volume);

// The snapshots that would be lost together with that volume.
std::optional<std::string> lvm_snapshots(const std::string &volume, std::string *why);
