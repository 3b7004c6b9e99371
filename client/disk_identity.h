// The identity of a disk: the SCSI GUID of a volume of the storage system, or, for any other disk, the 32-bit
// disk signature at byte 440 of the first sector (where an MBR has it), written as a GUID.
#pragma once

#include "base/text.h"

#include <cstdint>
#include <string>

constexpr uint32_t no_signature = 0;
constexpr uint32_t unreadable_signature = 0xFFFFFFFF;

// The GUID of a disk, at most 63 characters; absent for a null path or a disk without signature.
optional_text get_disk_guid(const char *path, bool is_lun);

// The signature, or unreadable_signature after a log line.
uint32_t get_disk_signature(const char *path);

// Writes the signature and flushes it to the device. Returns 0; -1 if the device is missing or cannot be
// opened; -errno for later failures; or the result of fsync.
int write_disk_signature(const char *path, uint32_t signature);

std::string signature_to_guid(uint32_t signature);
