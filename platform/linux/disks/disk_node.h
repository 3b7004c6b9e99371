// The node of a disk under /dev.
#pragma once

#include "base/fd.h"
#include "platform/linux/disks/host_disks.h"

// Opens the node for reading. Closed when it cannot be opened, or is not the device that sysfs names: through
// a stale node one disk would be judged by the content of another.
unique_fd open_node(const disk_facts &disk);
