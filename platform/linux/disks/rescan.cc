#include "kavdisk.h"
#include "platform/linux/devices/attributes.h"
#include "platform/linux/host/boundary.h"

#include <unistd.h>

#include <cerrno>

namespace {

// Three dashes stand for every channel, target and LUN of a host (the kernel's
// Documentation/ABI/testing/sysfs-class-scsi_host and drivers/scsi/scsi_sysfs.c).
int rescan()
{
    const char folder[] = "/sys/class/scsi_host";
    if (access(folder, F_OK) != 0 && errno == ENOENT)
        return 1; // no SCSI on this host
    const bool is_searched = write_to_all(folder, "scan", "- - -");
    read_sizes_anew(); // a disk that fails keeps its old size; the search itself succeeded
    return is_searched ? 1 : 0;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int kavdisk_rescan_dev(int /*flag*/)
{
    return result_of(__func__, 0, rescan);
}
