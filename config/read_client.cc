// Reads the sections that hold addresses: the filter and the manager.
#include "base/log.h"
#include "config/sections.h"

#include <arpa/inet.h>

namespace {
int read_filter_address(const xmlNode *node, std::list<qel_addr> &list)
{
    const optional_text text = xml_content(node);
    if (!text || text->empty()) {
        log_warning("Empty IP address.");
        return 0;
    }
    qel_addr *entry = list_append(list);
    if (!entry) {
        log_error("Failed to allocate memory for IP address.");
        return -1;
    }
    if (inet_pton(AF_INET, text->c_str(), &entry->addr) != 1) {
        log_error("Failed to convert IP address: %s.", text->c_str());
        return -1;
    }
    return 0;
}

int read_manager_address(const xmlNode *node, std::list<qel_addr> &list)
{
    qel_addr *entry = list_append(list);
    if (!entry) {
        log_error("Failed to allocate memory for server IP address.");
        return -1;
    }
    if (const optional_text text = xml_content(node))
        inet_pton(AF_INET, text->c_str(), &entry->addr);
    return 0;
}

int read_manager_child(const xmlNode *node, qel_manager &manager)
{
    if (xml_is_named(node, "ManagerGUID"))
        manager.guid = xml_content(node);
    else if (xml_is_named(node, "TargetIQN"))
        manager.target_iqn = xml_content(node);
    else if (xml_is_named(node, "ManagerIPAddr"))
        return read_manager_address(node, manager.ip_list);
    return 0;
}
} // namespace

int _cfg_xml_to_filter(const xmlNode *node, std::list<qel_addr> *list)
{
    if (!node || !list) {
        log_error("Failed to load IP filter, null pointer error.");
        return -1;
    }
    if (!xml_is_named(node, "IPAddrFilter")) {
        log_error("Unexpected node: %s.", reinterpret_cast<const char *>(node->name));
        return -1;
    }
    for (const xmlNode *child : xml_children{node}) {
        if (xml_is_named(child, "IPAddr") && read_filter_address(child, *list) < 0)
            return -1;
    }
    return 0;
}

std::unique_ptr<qel_manager> _cfg_xml_to_mngr(const xmlNode *node)
{
    if (!node) {
        log_error("Failed to load manager informations, null pointer error.");
        return nullptr;
    }
    if (!xml_is_named(node, "Manager")) {
        log_error("Unexpected XML node: %s.", reinterpret_cast<const char *>(node->name));
        return nullptr;
    }
    std::unique_ptr<qel_manager> manager(new (std::nothrow) qel_manager);
    if (!manager) {
        log_error("Failed to allocate memory for qel_manager.");
        return nullptr;
    }
    for (const xmlNode *child : xml_children{node}) {
        if (read_manager_child(child, *manager) < 0)
            return nullptr;
    }
    return manager;
}
