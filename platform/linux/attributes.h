// One attribute of many devices.
#pragma once

#include <string>

// Writes TEXT to ATTRIBUTE of every device in FOLDER that has it. A device that refuses does not keep the
// others from it. False after a log line for each that refused.
bool write_to_all(const std::string &folder, const std::string &attribute, const std::string &text);

// Has the kernel read anew how large the SCSI disks are that answer: it does not notice by itself when a
// volume is resized (the kernel's drivers/scsi/scsi_sysfs.c). One that does not answer would only be waited
// for. False after a log line for each that refused.
bool read_sizes_anew();
