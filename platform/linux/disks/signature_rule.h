// Which disks may be given a signature. The daemon writes four bytes at byte 440 of every reported disk
// without signature, so a disk must be reported only if that is safe.
#pragma once

#include "platform/linux/disks/host_disks.h"
#include "platform/linux/host/mountinfo.h"

#include <vector>

// True for a disk with an MBR or a GPT, and for a blank disk. False for a disk that is read-only, removable,
// empty, unreadable, composed of or used by other devices, or mounted or claimed as a whole, and for a disk
// with any other content: a superblock, another partition table, or unknown data.
bool may_carry_signature(const disk_facts &disk, const std::vector<mount_record> &mounts);
