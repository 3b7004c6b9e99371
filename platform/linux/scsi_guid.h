// The identity of a SCSI disk: of a volume of the storage system it is the GUID.
#pragma once

#include <optional>
#include <string>

// FOLDER is the disk's in /sys/block. Null when it has none.
std::optional<std::string> read_scsi_guid(const std::string &folder);

// A volume of the storage system is known by vendor and model; either may be null.
bool is_storage_volume(const char *vendor, const char *model);
