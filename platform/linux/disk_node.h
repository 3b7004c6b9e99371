// The node of a disk under /dev.
#pragma once

#include "platform/linux/host_disks.h"

// Opens the node for reading. -1 when it cannot be opened, or is not the device that sysfs speaks of: a stale
// node would have one disk judged by the content of another.
int open_node(const disk_facts &disk);
