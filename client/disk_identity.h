// The identity of a disk: for a volume of the storage system the GUID that SCSI gives, for any other the
// 32-bit disk signature at byte 440 of its first sector (where an MBR has it), written as a GUID.
#pragma once

#include "base/text.h"

#include <cstdint>
#include <string>

constexpr uint32_t no_signature = 0;
constexpr uint32_t unreadable_signature = 0xFFFFFFFF;

// The GUID text of a disk, at most 63 characters; absent for a null path and for a disk without signature.
optional_text get_disk_guid(const char *path, bool is_lun);

// The signature, or unreadable_signature after a log line.
uint32_t get_disk_signature(const char *path);

// Writes the signature through to the device. Returns 0; -1 when the device is missing or cannot be opened;
// -errno for later failures; or the result of fsync.
int write_disk_signature(const char *path, uint32_t signature);

std::string signature_to_guid(uint32_t signature);

// A random number of 31 bits; the generator starts anew from the clock's second at each call.
uint32_t gen_signature();

// Writes a fresh signature that no other disk of the host has. Enumerates the disks, so it can take seconds.
void set_disk_signature(const char *path);
