// Which disks may be given a signature. The daemon writes four bytes at byte 440 of every reported disk
// without signature, so a disk must be reported only if that is safe.
#pragma once

#include "platform/linux/disks/host_disks.h"
#include "platform/linux/host/mountinfo.h"

#include <vector>

enum class signature_objection {
    none,
    mounted, // as a whole
    empty,   // without a medium, too
    too_small,
    composed, // of other devices
    held,     // by another device
    read_only,
    removable,
    unreadable,
    ambiguous,
    superblock, // of a file system, LVM, LUKS ... on the whole disk
    other_table,
    unknown_data, // in its first sector
    claimed,      // by a process that has opened it exclusively
};

// None for a disk with an MBR or a GPT, and for a blank disk.
signature_objection objection_to_signature(const disk_facts &disk, const std::vector<mount_record> &mounts);

inline bool may_carry_signature(const disk_facts &disk, const std::vector<mount_record> &mounts)
{
    return objection_to_signature(disk, mounts) == signature_objection::none;
}

// The same, but none for a volume of the storage system as well. It is identified by SCSI and never gets a
// signature, so it is reported whatever is on it: a mirror has the content of its disk.
signature_objection objection_to_report(const disk_facts &disk, const std::vector<mount_record> &mounts);
