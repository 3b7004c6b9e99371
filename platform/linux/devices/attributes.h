// One attribute of many devices.
#pragma once

#include <string>

// Writes TEXT to ATTRIBUTE of every device in FOLDER that has it; goes on after a failure. False after a log
// line for each failure.
bool write_to_all(const std::string &folder, const std::string &attribute, const std::string &text);

// Makes the kernel read the sizes of all running SCSI disks again: it does not notice a resized volume by
// itself (the kernel's drivers/scsi/scsi_sysfs.c). Disks that do not run are skipped, as they would block.
// False after a log line for each failure.
bool read_sizes_anew();
