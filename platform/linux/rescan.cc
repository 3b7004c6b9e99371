#include "kavdisk.h"
#include "platform/linux/attributes.h"

#include <errno.h>
#include <unistd.h>

// Three dashes stand for every channel, target and LUN of a host (the kernel's
// Documentation/ABI/testing/sysfs-class-scsi_host and drivers/scsi/scsi_sysfs.c).
extern "C" __attribute__((visibility("default"))) int kavdisk_rescan_dev(int /*flag*/)
{
    const char folder[] = "/sys/class/scsi_host";
    if (access(folder, F_OK) != 0 && errno == ENOENT)
        return 1; // no SCSI on this host
    const bool is_searched = write_to_all(folder, "scan", "- - -");
    read_sizes_anew(); // whoever refuses stays as large as it was, which does not spoil the search
    return is_searched ? 1 : 0;
}
