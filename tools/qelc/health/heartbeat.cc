#include "tools/qelc/health/heartbeat.h"

#include "base/deleter.h"
#include "platform/linux/host/text.h"
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
} // namespace

// A list that a former manager of this host has left is no sign of a manager elsewhere.
std::optional<heartbeat_view> find_heartbeat(const manager_view &manager)
{
    if (manager.host_id.empty() || !is_on_this_host(manager))
        return std::nullopt;
    const host_list list = find_hosts(default_state_folder, manager.host_id);
    if (!list.hosts.empty() && (list.failure == 0 || is_service_missing(list.failure)))
        return heartbeat_view{list.hosts.front().last, list.failure == 0};
    return list.failure == 0 ? std::optional(heartbeat_view{}) : std::nullopt;
}
