#include "tw.h"

#include "base/deleter.h"
#include "platform/linux/devices/scsi_guid.h"
#include "platform/linux/host/allocate.h"
#include "platform/linux/host/boundary.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/mirror/engine.h"
#include "platform/linux/mirror/level_hold.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

const char *shown(const char *text)
{
    return text ? text : "(none)";
}

// The folder in sysfs of the disk with that node or a link to it. Null with errno if the path does not exist.
std::optional<std::string> sysfs_folder(const char *path)
{
    char real[PATH_MAX];
    if (!realpath(path, real))
        return std::nullopt;
    return "/sys/block/" + disk_name_of(real);
}

// Cuts FROM to the size of TO, which is zeroed, so it stays terminated.
template <size_t Size>
void set_text(char (&to)[Size], const std::string &from)
{
    memcpy(to, from.data(), std::min(from.size(), Size - 1));
}

tw_relationship *make_relationship(const mirror_view &view)
{
    auto *one = zeroed<tw_relationship>();
    one->percent = view.percent;
    set_text(one->sync_state, text_of(view.record.state));
    set_text(one->status, "Running");
    set_text(one->src_link, view.record.src_is_up ? "Up" : "Down");
    set_text(one->src_path, view.record.src_path);
    set_text(one->src_guid, view.record.src_guid);
    set_text(one->dest_link, view.record.dest_is_up ? "Up" : "Down");
    set_text(one->dest_path, view.record.dest_path);
    set_text(one->dest_guid, view.record.dest_guid);
    return one;
}

using chain_holder = std::unique_ptr<tw_relationship, deleter<tw_disk_stat_release>>;

// All of them or an exception: a chain that is too short would be taken for all that there is.
chain_holder make_chain(const char *guid, std::chrono::milliseconds limit)
{
    tw_relationship head{};
    tw_relationship *last = &head;
    chain_holder chain;
    for (const mirror_view &view : list_mirrors(limit)) {
        if (guid && view.record.src_guid != guid)
            continue;
        last->next = make_relationship(view);
        last = last->next;
        if (!chain)
            chain.reset(last);
    }
    return chain;
}

int read_guid(const char *path, char *buffer, int size)
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

} // namespace

EXPORTED tw_relationship *tw_disk_stat(const char *guid)
{
    constexpr std::chrono::seconds limit{2}; // a report may wait so long
    return result_of(__func__, static_cast<tw_relationship *>(nullptr),
                     [&] { return make_chain(guid, limit).release(); });
}

EXPORTED tw_relationship *tw_disk_stat_now(const char *guid)
{
    return result_of(__func__, static_cast<tw_relationship *>(nullptr),
                     [&] { return make_chain(guid, {}).release(); });
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
    return result_of(__func__, -1,
                     [&] { return protect_disk(shown(local_guid), shown(mirror_guid)) ? 0 : -1; });
}

EXPORTED int tw_disk_unprotect(const char *local_guid)
{
    return result_of(__func__, -1, [&] { return unprotect_disk(shown(local_guid)) ? 0 : -1; });
}

EXPORTED int tw_disk_resync(const char *local_guid, int /*flag*/)
{
    return result_of(__func__, -1, [&] { return resync_disk(shown(local_guid)) ? 0 : -1; });
}

EXPORTED int tw_disk_stop_sync(const char *local_guid)
{
    return result_of(__func__, -1, [&] { return stop_resync(shown(local_guid)) ? 0 : -1; });
}

EXPORTED int tw_hold_at_level(const char *mirror_guid, int timeout_ms, hold_manner manner)
{
    return result_of(__func__, -1, [&] {
        return hold_at_level(shown(mirror_guid), std::chrono::milliseconds(timeout_ms), manner).release();
    });
}

EXPORTED int tw_scsi_get_guid(const char *path, char *buffer, int size)
{
    return result_of(__func__, -1, [&] { return read_guid(path, buffer, size); });
}
