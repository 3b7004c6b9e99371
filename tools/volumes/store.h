// What a volume lies on: a sparse file, or a volume of LVM.
#pragma once

#include "tools/volumes/record.h"

#include <cstdint>
#include <optional>
#include <string>

// The path of the file or the LVM volume, whether it is there or not.
std::string store_path(const volume_record &volume);

// Makes it, with the signature of the volume; from POOL, VG/POOL, if it is thin. Returns what is wrong, ""
// for nothing. Nothing is overwritten, and what this made before it failed is removed.
std::string make_store(const volume_record &volume, const std::string &pool);

// Removes it if it is there and bears the mark of this very volume. Returns what is wrong, "" for nothing.
std::string remove_store(const volume_record &volume);

// Why it cannot be shown as a disk; "" if it can.
std::string store_fault(const volume_record &volume);

bool is_store_there(const volume_record &volume);

// Why it must not be removed: it is another one, or something else would be lost with it. "" if it may.
std::string removal_objection(const volume_record &volume);

// Bytes; null if it is not there.
std::optional<uint64_t> store_taken(const volume_record &volume);
