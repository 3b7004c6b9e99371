#include "kavdisk.h"
#include "platform/linux/sysfs.h"
#include "platform/linux/weak_log.h"

#include <errno.h>
#include <string.h>

// Three dashes stand for every channel, target and LUN of a host (the kernel's
// Documentation/ABI/testing/sysfs-class-scsi_host and drivers/scsi/scsi_sysfs.c).
extern "C" __attribute__((visibility("default"))) int kavdisk_rescan_dev(int /*flag*/)
{
    const std::string folder = "/sys/class/scsi_host";
    const auto hosts = list_folder(folder);
    if (!hosts) {
        if (errno == ENOENT)
            return 1; // no SCSI on this host
        log_error("Cannot list %s: %s", folder.c_str(), strerror(errno));
        return 0;
    }
    int result = 1;
    for (const std::string &host : *hosts) {
        const std::string path = folder + "/" + host + "/scan";
        if (!write_attribute(path, "- - -")) {
            log_error("Cannot ask %s to look for new devices: %s", path.c_str(), strerror(errno));
            result = 0;
        }
    }
    return result;
}
