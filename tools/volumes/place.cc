#include "tools/volumes/place.h"

#include "tools/volumes/lvm.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {
constexpr char on_itself[] = "it lies on the very disk that is to be mirrored";

std::string read_folder(const std::string &where, const disk_facts &disk, volume_place *place)
{
    char real[PATH_MAX];
    struct stat facts {};
    struct statfs system {};
    if (!realpath(where.c_str(), real) || stat(real, &facts) != 0 || statfs(real, &system) != 0)
        return strerror(errno);
    place->in = real;
    if (place->in.starts_with("/dev/"))
        return "name a volume group as VG or VG/POOL, without a path";
    if (!S_ISDIR(facts.st_mode))
        return strerror(ENOTDIR);
    if ((system.f_flags & ST_RDONLY) != 0)
        return strerror(EROFS);
    place->free = static_cast<uint64_t>(system.f_bavail) * static_cast<uint64_t>(system.f_bsize);
    place->is_volatile = system.f_type == TMPFS_MAGIC || system.f_type == RAMFS_MAGIC;
    return lies_on(facts.st_dev, disk.name) ? on_itself : "";
}

std::string read_group(const std::string &where, const disk_facts &disk, volume_place *place)
{
    std::string why;
    const bool has_pool = where.find('/') != std::string::npos;
    place->kind = has_pool ? volume_kind::thin : volume_kind::thick;
    place->in = where.substr(0, where.find('/'));
    place->pool = has_pool ? where : "";
    const auto free = lvm_free(where, &why);
    const auto devices = free ? lvm_devices(place->in, &why) : std::nullopt;
    if (!devices)
        return why.empty() ? "there is no such volume group or pool" : why;
    place->free = *free;
    for (const std::string &device : *devices) {
        struct stat facts {};
        if (stat(device.c_str(), &facts) == 0 && lies_on(facts.st_rdev, disk.name))
            return on_itself;
    }
    return "";
}
} // namespace

std::string read_place(const std::string &where, const disk_facts &disk, volume_place *place)
{
    *place = {};
    if (where.starts_with('/') || where.starts_with('.'))
        return read_folder(where, disk, place);
    if (is_lvm_name(where, 1) || is_lvm_name(where, 2))
        return read_group(where, disk, place);
    return "neither a folder (/...) nor a volume group (VG or VG/POOL)";
}
