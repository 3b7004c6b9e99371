#include "requests/channels.h"

#include "base/log.h"
#include "base/number.h"
#include "requests/document.h"

#include <arpa/inet.h>

namespace {
optional_text required_attribute(const xmlNode *node, const char *name)
{
    optional_text value = xml_attribute(node, name);
    if (!value)
        log_error("Failed to retrieve property %s.", name);
    return value;
}

const xmlNode *required_child(const xmlNode *node, const char *name)
{
    const xmlNode *child = find_child(node, name);
    if (!child)
        log_error("Failed to retrieve node %s.", name);
    return child;
}

bool read_names(const xmlNode *channel, qel_iscsi_node &target, qel_iscsi_node &initiator)
{
    initiator.iqn = required_attribute(channel, "InitiatorIqn");
    if (!initiator.iqn)
        return false;
    log_info("Get Initiator Iqn: %s.", initiator.iqn->c_str());
    target.iqn = required_attribute(channel, "TargetIqn");
    if (!target.iqn)
        return false;
    log_info("Get Target Iqn: %s.", target.iqn->c_str());
    return true;
}

// "ADDRESS" or "ADDRESS:PORT".
void read_portal(const std::string &text, qel_iscsi_node &target)
{
    const size_t colon = text.find(':');
    const std::string address = text.substr(0, colon);
    target.ip = inet_addr(address.c_str());
    target.port =
        htons(colon == std::string::npos ? default_iscsi_port
                                         : static_cast<in_port_t>(scan_int(text.c_str() + colon + 1)));
    log_info("Get Target IP: %s.", address.c_str());
}

bool read_addresses(const xmlNode *channel, qel_iscsi_node &target, qel_iscsi_node &initiator)
{
    const xmlNode *path = required_child(channel, "Path");
    if (!path)
        return false;
    const optional_text initiator_ip = required_attribute(path, "InitiatorIP");
    if (!initiator_ip)
        return false;
    initiator.ip = inet_addr(initiator_ip->c_str());
    log_info("Get Initiator IP: %s.", initiator_ip->c_str());
    const optional_text target_ip = required_attribute(path, "TargetIP");
    if (!target_ip)
        return false;
    read_portal(*target_ip, target);
    return true;
}
} // namespace

int xml_to_iscsinode(qel_iscsi_node *target, qel_iscsi_node *initiator, const char *text)
{
    if (!text)
        return -1;
    if (!target) {
        log_error("tgt is NULL");
        return -1;
    }
    if (!initiator) {
        log_error("init is NULL");
        return -1;
    }
    const xml_doc doc = open_document(text);
    const xmlNode *channel = doc ? required_child(xml_root(doc), "Channel") : nullptr;
    if (!channel)
        return -1;
    qel_iscsi_node new_target, new_initiator;
    if (!read_names(channel, new_target, new_initiator) ||
        !read_addresses(channel, new_target, new_initiator))
        return -1;
    *target = std::move(new_target);
    *initiator = std::move(new_initiator);
    return 0;
}
