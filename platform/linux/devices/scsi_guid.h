// The identity of a SCSI disk; for a volume of the storage system it is the GUID.
#pragma once

#include <optional>
#include <string>

// FOLDER is the disk's folder in /sys/block. Null if the disk has no identity.
std::optional<std::string> read_scsi_guid(const std::string &folder);

// True for a volume of the storage system, judged by vendor and model; either may be null.
bool is_storage_volume(const char *vendor, const char *model);
