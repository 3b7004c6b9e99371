#include "iscsi/node_record.h"

#include "base/file.h"
#include "base/log.h"
#include "iscsi/folder.h"
#include "iscsi/iface.h"

#include <algorithm>
#include <cerrno>

namespace {
// Removes the entry NAME of the folder AT and everything in it. PATH is for the log.
bool remove_entry(int at, const char *name, const std::string &path)
{
    const folder_stream folder = open_real_folder(at, name);
    if (!folder && (errno == ENOTDIR || errno == ELOOP))
        return unlinkat(at, name, 0) == 0;
    if (!folder) {
        log_error("Failed to open dir:%s", path.c_str());
        return false;
    }
    const std::vector<std::string> names = names_in(folder.get());
    const bool emptied = std::all_of(names.begin(), names.end(), [&](const std::string &entry) {
        return remove_entry(dirfd(folder.get()), entry.c_str(), path + "/" + entry);
    });
    return emptied && unlinkat(at, name, AT_REMOVEDIR) == 0;
}

int remove_other_portals(const std::string &path, const char *address)
{
    const folder_stream folder = open_real_folder(AT_FDCWD, path.c_str());
    if (!folder) {
        log_error("Failed to open dir:%s", path.c_str());
        return -1;
    }
    for (const std::string &name : names_in(folder.get())) {
        if (!name.starts_with(address) && !remove_entry(dirfd(folder.get()), name.c_str(), path + "/" + name))
            return -1;
    }
    log_debug("Remove iscsi node recode success.");
    return 0;
}
} // namespace

int remove_file(const char *path)
{
    return remove_entry(AT_FDCWD, path, path) ? 0 : -1;
}

int remove_iscsi_node_record(const char *iqn, const char *address)
{
    const std::string path = std::string(node_dir) + "/" + (iqn ? iqn : "(null)");
    if (!iqn || !is_file_name(iqn)) {
        log_error("Failed to open dir:%s", path.c_str());
        return -1;
    }
    return address ? remove_other_portals(path, address) : remove_file(path.c_str());
}

int qel_remove_channel_file(const char *iqn)
{
    if (!iqn)
        return 0;
    if (remove_iscsi_iface() != 0) {
        log_error("Failed to remove iscsi iface file");
        return -1;
    }
    if (remove_iscsi_node_record(iqn, nullptr) != 0) {
        log_error("Failed to remove iscsi node files");
        return -1;
    }
    return 0;
}
