#include "iscsi/channel.h"

#include "base/file.h"
#include "base/log.h"
#include "client/addresses.h"
#include "client/channels.h"
#include "client/host.h"
#include "iscsi/iface.h"
#include "iscsi/initiator.h"
#include "iscsi/node_record.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {
constexpr char session_dir[] = "/sys/class/iscsi_session";
constexpr int value_size = 512;

int is_visible(const dirent *entry)
{
    return entry->d_name[0] != '.';
}

std::vector<std::string> sessions_in_order()
{
    dirent **list = nullptr;
    const int count = scandir(session_dir, &list, is_visible, alphasort);
    if (count < 0) {
        log_error("Failed to scandir(%s)", session_dir);
        return {};
    }
    std::vector<std::string> names;
    for (int at = 0; at < count; ++at) {
        names.emplace_back(list[at]->d_name);
        std::free(list[at]);
    }
    std::free(list);
    return names;
}

// True if the session's file contains exactly VALUE; an empty file contains no value.
bool session_says(const std::string &session, const char *file, const optional_text &value)
{
    char text[value_size];
    const std::string path = std::string(session_dir) + "/" + session + "/" + file;
    return get_value(text, path.c_str(), sizeof text) == 0 && text[0] != '\0' && value == text;
}

qel_iscsi_node node_of(const char *iqn)
{
    return {.iqn = optional_copy(iqn)};
}

// Stores the manager's target. False if there is none.
bool copy_target(optional_text &iqn)
{
    const std::lock_guard held(g_client->lock);
    if (!g_client->manager || !g_client->manager->target_iqn)
        return false;
    iqn = g_client->manager->target_iqn;
    log_debug("tgt_iqn:%s\n", iqn->c_str());
    return true;
}

// The manager may have been removed since its target was copied, so its addresses are read and used under the
// lock.
int establish_to_manager(const char *iqn)
{
    const std::lock_guard held(g_client->lock);
    return g_client->manager ? establish_channel_to_any(iqn, g_client->manager->ip_list) : -1;
}
} // namespace

int get_value(char *buf, const char *path, int size)
{
    if (!buf || !path || size < 1) {
        log_error("%s: Invalid input", __func__);
        return -1;
    }
    memset(buf, 0, static_cast<size_t>(size));
    if (access(path, F_OK) != 0) {
        log_error("%s is not exist", path);
        return -1;
    }
    const file_stream stream = open_for_reading(path);
    if (!stream) {
        log_error("Failed to open %s", path);
        return -1;
    }
    if (!fgets(buf, size, stream.get())) {
        log_error("Failed to get value from %s", path);
        return -1;
    }
    buf[strcspn(buf, "\n")] = '\0';
    return 0;
}

int qel_iscsi_channel_exist(const qel_iscsi_node *target, const qel_iscsi_node *initiator)
{
    if (!target) {
        log_error("tgt is NULL");
        return 0;
    }
    const optional_text iface = get_iface_name(initiator);
    const std::vector<std::string> sessions = sessions_in_order();
    // Backwards: the newest session, which is usually the one looked for, tends to be the last.
    return std::any_of(sessions.rbegin(), sessions.rend(), [&](const std::string &session) {
        return session_says(session, "targetname", target->iqn) &&
               (!iface || session_says(session, "ifacename", iface));
    });
}

int qel_establish_iscsi_channel_auto(const qel_iscsi_node *target)
{
    std::list<qel_ip_t> addresses;
    get_ipsv4_filter_ip(g_client, addresses);
    int result = -1;
    for (const qel_ip_t &address : addresses) {
        const qel_iscsi_node initiator = {.iqn = std::nullopt, .ip = address.addr};
        if (qel_iscsi_discover_login(target, &initiator) != 0)
            continue;
        log_info("Connect from '%s' to '%s'(%s:%d) successfully", dotted(address.addr).c_str(),
                 printable(target->iqn), dotted(target->ip).c_str(), target->port);
        result = 0;
    }
    return result;
}

int establish_channel_to_any(const char *iqn, const std::list<qel_addr> &addresses)
{
    qel_iscsi_node target = node_of(iqn);
    for (const qel_addr &address : addresses) {
        target.ip = address.addr;
        if (qel_establish_iscsi_channel_auto(&target) == 0) {
            log_info("Connect to '%s'(%s:%d) success", printable(target.iqn), dotted(target.ip).c_str(),
                     target.port);
            return 0;
        }
    }
    return -1;
}

int qel_cancel_iscsi_channel_all(const char *iqn)
{
    if (!iqn)
        return 0;
    const qel_iscsi_node target = node_of(iqn);
    const qel_iscsi_node nobody;
    if (qel_iscsi_logout_channel(&target, &nobody) != 0) {
        log_error("logout error");
        return -1;
    }
    // The sessions have ended; records that stay do no harm.
    static_cast<void>(qel_remove_channel_file(iqn));
    return 0;
}

int qel_is_iscsi_channel_login()
{
    optional_text iqn;
    if (!copy_target(iqn))
        return -1;
    if (_is_iscsi_ssn_exist(c_text(iqn))) {
        log_debug("ISCSI channel is exit.");
        return -1;
    }
    if (establish_to_manager(c_text(iqn)) != 0)
        return -1;
    log_info("ISCSI is established successfully.");
    return 0;
}
