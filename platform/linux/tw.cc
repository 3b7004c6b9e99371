#include "tw.h"

#include "platform/linux/sysfs.h"
#include "platform/linux/vpd.h"
#include "platform/linux/weak_log.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

const char *shown(const char *text)
{
    return text ? text : "(none)";
}

// A plain Linux host has no mirror driver, hence no relationship that could be made or changed.
int refuse(const char *purpose, const char *guid)
{
    log_error("Cannot %s disk %s: this host has no mirror driver", purpose, shown(guid));
    return -1;
}

// The folder of a disk in sysfs, by its node or a link to it. Null, with errno, when there is no such path.
std::optional<std::string> sysfs_folder(const char *path)
{
    char real[PATH_MAX];
    if (!realpath(path, real))
        return std::nullopt;
    std::string name = real;
    if (name.starts_with("/dev/"))
        name.erase(0, strlen("/dev/"));
    std::replace(name.begin(), name.end(), '/', '!');
    return "/sys/block/" + name;
}

std::optional<std::string> read_scsi_guid(const std::string &folder)
{
    auto guid = guid_of_serial_page(read_bytes(folder + "/device/vpd_pg80").value_or(""));
    if (!guid)
        guid = identifier_of_designation_page(read_bytes(folder + "/device/vpd_pg83").value_or(""));
    return guid;
}

} // namespace

EXPORTED tw_relationship *tw_disk_stat(const char * /*guid*/)
{
    return nullptr;
}

EXPORTED void tw_disk_stat_release(tw_relationship *chain)
{
    while (chain) {
        tw_relationship *next = chain->next;
        free(chain);
        chain = next;
    }
}

EXPORTED int tw_disk_protect(const char *local_guid, const char *mirror_guid)
{
    log_error("Cannot mirror disk %s to %s: this host has no mirror driver", shown(local_guid),
              shown(mirror_guid));
    return -1;
}

EXPORTED int tw_disk_unprotect(const char *local_guid)
{
    return refuse("remove the protection of", local_guid);
}

EXPORTED int tw_disk_resync(const char *local_guid, int /*flag*/)
{
    return refuse("resynchronise", local_guid);
}

EXPORTED int tw_disk_stop_sync(const char *local_guid)
{
    return refuse("stop the synchronisation of", local_guid);
}

EXPORTED int tw_scsi_get_guid(const char *path, char *buffer, int size)
{
    if (!path || !buffer || size <= 0) {
        log_error("Cannot read the SCSI GUID of %s: no path or no buffer", shown(path));
        return -1;
    }
    const auto folder = sysfs_folder(path);
    if (!folder) {
        log_error("Cannot read the SCSI GUID of %s: %s", path, strerror(errno));
        return -1;
    }
    const auto guid = read_scsi_guid(*folder);
    if (!guid) {
        log_error("Disk %s has no SCSI GUID", path);
        return -1;
    }
    if (guid->size() >= static_cast<size_t>(size)) {
        log_error("The SCSI GUID of disk %s, %s, does not fit into %d bytes", path, guid->c_str(), size);
        return -1;
    }
    memcpy(buffer, guid->c_str(), guid->size() + 1);
    return 0;
}
