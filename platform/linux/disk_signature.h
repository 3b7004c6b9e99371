// The disk signature: four bytes at byte 440, where an MBR has it. A disk without a SCSI identity of the
// storage system is known by it.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

using disk_signature = std::array<char, 4>;

inline constexpr size_t signature_offset = 440;

// FIRST_BYTES are those of a disk, up to the signature's end at least.
disk_signature signature_in(const char *first_bytes);

// The GUID that the daemon makes of it. Null for four zeros: the disk has no signature.
std::optional<std::string> guid_of_signature(const disk_signature &signature);

// The opposite. Four zeros for what is no such GUID.
disk_signature signature_of_guid(const std::string &guid);
