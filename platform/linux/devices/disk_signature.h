// The disk signature: four bytes at byte 440, where an MBR has it. It identifies disks that are not volumes
// of the storage system.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

using disk_signature = std::array<char, 4>;

inline constexpr size_t signature_offset = 440;

// The signature in FIRST_BYTES, the first bytes of a disk up to at least the end of the signature.
disk_signature signature_in(const char *first_bytes);

// The GUID that the daemon derives from it. Null for four zeros, which mean no signature.
std::optional<std::string> guid_of_signature(const disk_signature &signature);

// The reverse. Four zeros for a GUID of another form.
disk_signature signature_of_guid(const std::string &guid);
