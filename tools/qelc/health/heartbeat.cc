#include "tools/qelc/health/heartbeat.h"

#include "base/deleter.h"
#include "config/config.h"
#include "platform/linux/host/text.h"
#include "protocol/stream.h"
#include "tools/common/host_list.h"

#include <arpa/inet.h>
#include <ifaddrs.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace {
// All of 127/8 is this host, too, though no interface lists more than one of it.
bool is_own(const in_addr &address, const ifaddrs *interfaces)
{
    if (ntohl(address.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET)
        return true;
    for (const ifaddrs *one = interfaces; one; one = one->ifa_next) {
        if (one->ifa_addr && one->ifa_addr->sa_family == AF_INET &&
            reinterpret_cast<const sockaddr_in *>(one->ifa_addr)->sin_addr.s_addr == address.s_addr)
            return true;
    }
    return false;
}

bool is_on_this_host(const manager_view &manager)
{
    ifaddrs *all = nullptr;
    getifaddrs(&all); // null if it fails
    const std::unique_ptr<ifaddrs, deleter<freeifaddrs>> interfaces(all);
    return std::ranges::any_of(split(manager.addresses, ' '), [&](std::string_view text) {
        in_addr address{};
        return inet_pton(AF_INET, std::string(text).c_str(), &address) == 1 && is_own(address, all);
    });
}
// Whether a program listens where the daemon sends its heartbeats to; true if that cannot be found out. The
// port is not listened on here, so that no heartbeat can come to this program.
bool is_server_port_taken()
{
    const auto config = qelcfg_read(config_path);
    if (!config)
        return true;
    const unique_fd socket = reused_sock();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(config->server_port));
    return bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0;
}
} // namespace

// A list that a former manager of this host has left says nothing of one elsewhere, or of another program.
std::optional<heartbeat_view> find_heartbeat(const manager_view &manager)
{
    if (manager.host_id.empty() || !is_on_this_host(manager))
        return std::nullopt;
    const host_list list = find_hosts(default_state_folder, manager.host_id);
    if (list.failure == 0)
        return heartbeat_view{list.hosts.empty() ? 0 : list.hosts.front().last, true};
    if (list.hosts.empty() || !is_service_missing(list.failure) || is_server_port_taken())
        return std::nullopt;
    return heartbeat_view{list.hosts.front().last, false};
}
