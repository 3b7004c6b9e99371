#include "iscsi/iface.h"

#include "base/deleter.h"
#include "base/file.h"
#include "base/log.h"
#include "iscsi/folder.h"

#include <ifaddrs.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <string_view>

namespace {
constexpr char temporary_name[] = "qel_iface.back";
constexpr char fixed_settings[] = "iface.transport_name = tcp\n"
                                  "iface.vlan_id = 0\n"
                                  "iface.vlan_priority = 0\n"
                                  "iface.iface_num = 0\n"
                                  "iface.mtu = 0\n"
                                  "iface.port = 0\n";

std::string path_of(const std::string &name)
{
    return std::string(iface_dir) + "/" + name;
}

// The name of the interface with that address; "" if there is none; absent if an address cannot be converted.
optional_text find_nic(const ifaddrs *interfaces, const std::string &wanted)
{
    for (const ifaddrs *entry = interfaces; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || std::string_view(entry->ifa_name) == "lo" ||
            entry->ifa_addr->sa_family != AF_INET)
            continue;
        char address[NI_MAXHOST];
        const int failure = getnameinfo(entry->ifa_addr, sizeof(sockaddr_in), address, sizeof address,
                                        nullptr, 0, NI_NUMERICHOST);
        if (failure != 0) {
            log_error("Failed to get ip by getnameinfo(): %s\n", gai_strerror(failure));
            return std::nullopt;
        }
        if (wanted == address)
            return entry->ifa_name;
    }
    return std::string();
}

// A full disk is often reported only by fclose.
bool write_record(FILE *stream, const std::string &text)
{
    const bool written = fputs(text.c_str(), stream) >= 0;
    return fclose(stream) == 0 && written;
}

int replace_record(const std::string &path, const std::string &text)
{
    static std::mutex replacing; // two channels that are set up at the same moment share the temporary file
    const std::lock_guard held(replacing);
    const std::string temporary = path_of(temporary_name);
    FILE *stream = fopen(temporary.c_str(), "we");
    if (!stream) {
        log_error("Failed to open file:%s", path.c_str());
        return -1;
    }
    if (!write_record(stream, text))
        return -1;
    if (rename(temporary.c_str(), path.c_str()) != 0) {
        log_error("qel_iface file create failed.");
        return -1;
    }
    return 0;
}
} // namespace

optional_text get_nic_name(const qel_iscsi_node *initiator)
{
    if (!initiator) {
        log_error("init is NULL");
        return std::nullopt;
    }
    const optional_text address = node_ip_str(*initiator);
    if (!address) {
        log_error("initiator ip is NULL");
        return std::nullopt;
    }
    ifaddrs *interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0) {
        log_error("Failed to get ifaddrs");
        return std::nullopt;
    }
    const std::unique_ptr<ifaddrs, deleter<freeifaddrs>> owner(interfaces);
    return find_nic(interfaces, *address);
}

int is_host_ip(const qel_iscsi_node *initiator)
{
    if (!initiator) {
        log_error("init is NULL");
        return -1;
    }
    if (!get_nic_name(initiator)) {
        log_debug("Ip is not the host ip");
        return -1;
    }
    return 0;
}

optional_text get_iface_name(const qel_iscsi_node *initiator)
{
    if (!initiator) {
        log_error("init is NULL");
        return std::nullopt;
    }
    optional_text name = get_nic_name(initiator);
    // An administrator may choose an interface's label freely; here it becomes a file name.
    if (!name || !is_file_name(iface_prefix + *name)) {
        log_debug("Ip is not the host ip");
        return std::nullopt;
    }
    return iface_prefix + *name;
}

int is_iface_exist(const qel_iscsi_node *initiator)
{
    if (!initiator) {
        log_error("init is NULL");
        return -1;
    }
    const optional_text name = get_iface_name(initiator);
    if (!name) {
        log_error("Failed to get iface name");
        return -1;
    }
    return access(path_of(*name).c_str(), F_OK) == 0 ? 0 : -1;
}

int _creat_iface(const qel_iscsi_node *initiator)
{
    if (!initiator) {
        log_error("init is NULL");
        return -1;
    }
    const optional_text nic = get_nic_name(initiator);
    if (!nic) {
        log_debug("Ip is not the host ip");
        return -1;
    }
    const optional_text name = get_iface_name(initiator);
    if (!name) {
        log_error("Failed to get iface name");
        return -1;
    }
    const std::string path = path_of(*name);
    const std::string text =
        "iface.net_ifacename = " + *nic + "\niface.iscsi_ifacename = " + *name + "\n" + fixed_settings;
    log_debug("iface_path:%s", path.c_str());
    log_debug("iface_context:%s", text.c_str());
    return replace_record(path, text);
}

int check_before_operate(optional_text *iface_name, const qel_iscsi_node *initiator)
{
    if (!initiator) {
        log_error("init is NULL");
        return -1;
    }
    if (!iface_name) {
        log_error("iface_name is NULL");
        return -1;
    }
    iface_name->reset();
    if (!node_ip_str(*initiator)) {
        log_debug("init ip is NULL");
        return 0;
    }
    if (is_host_ip(initiator) != 0)
        return 0;
    *iface_name = get_iface_name(initiator);
    if (!*iface_name) {
        log_error("Failed to get iface name");
        return -1;
    }
    // If the record cannot be written, the tool fails with a better message.
    if (is_iface_exist(initiator) != 0)
        static_cast<void>(_creat_iface(initiator));
    return 0;
}

int remove_iscsi_iface()
{
    const folder_stream folder = open_folder(iface_dir);
    if (!folder) {
        log_error("Failed to open dir:%s", iface_dir);
        return -1;
    }
    for (const std::string &name : names_in(folder.get())) {
        if (name.starts_with(iface_prefix))
            unlinkat(dirfd(folder.get()), name.c_str(), 0);
    }
    log_debug("Remove iscsi iface success.");
    return 0;
}
