#include "iscsi/node.h"

#include "base/log.h"
#include "client/addresses.h"

optional_text node_ip_str(const qel_iscsi_node &node)
{
    if (node.ip == INADDR_ANY || node.ip == INADDR_NONE)
        return std::nullopt;
    return dotted(node.ip);
}

optional_text get_portal(const qel_iscsi_node *target)
{
    if (!target) {
        log_error("tgt is NULL");
        return std::nullopt;
    }
    optional_text portal = node_ip_str(*target);
    if (!portal)
        log_debug("Target ip is NULL");
    else if (target->port != 0)
        *portal += ":" + std::to_string(ntohs(target->port));
    return portal;
}
