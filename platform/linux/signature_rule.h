// Which disks may be given a signature. The daemon writes four bytes at byte 440 of every reported disk that
// has none, so whatever is not surely free to carry them must not be reported.
#pragma once

#include "platform/linux/host_disks.h"
#include "platform/linux/mountinfo.h"

#include <vector>

// True for a disk with an MBR or a GPT, and for a blank one. False for a disk that is read-only, removable,
// empty, unreadable, made of or used by other devices, mounted or held as a whole, and for one that carries
// anything else: a superblock of any kind, another partition table, data that nobody recognises.
bool may_carry_signature(const disk_facts &disk, const std::vector<mount_record> &mounts);
