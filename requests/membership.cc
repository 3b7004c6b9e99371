#include "requests/membership.h"

#include "base/log.h"
#include "client/addresses.h"
#include "requests/document.h"

#include <new>

std::unique_ptr<qel_manager> xml_to_manager(const char *text)
{
    if (!text)
        return nullptr;
    std::unique_ptr<qel_manager> manager(new (std::nothrow) qel_manager);
    if (!manager)
        return nullptr;
    const xml_doc doc = open_document(text, {.empty = "Failed to retrieve root node."});
    if (!doc)
        return nullptr;
    if (const xmlNode *server = first_child_named(doc, "Server")) {
        manager->guid = xml_attribute(server, "ID");
        if (const optional_text addresses = xml_attribute(server, "IPs"))
            append_addresses(*addresses, manager->ip_list);
        manager->target_iqn = xml_attribute(server, "TargetIqn");
    }
    return manager;
}

optional_text xml_to_alias(const char *text)
{
    const xml_doc doc = open_document(text);
    if (!doc)
        return std::nullopt;
    optional_text alias;
    if (const xmlNode *client = first_child_named(doc, "Client"))
        alias = xml_attribute(client, "Alias");
    log_debug("xml_to_alias:%s", printable(alias));
    return alias;
}

void xml_to_pair(std::string *server_guid, std::string *client_guid, const char *text)
{
    if (!server_guid || !client_guid || !text) {
        log_error("Invalid input parameter");
        return;
    }
    const xml_doc doc = open_document(text);
    if (!doc)
        return;
    for (const xmlNode *child : xml_children{xml_root(doc)}) {
        if (xml_is_named(child, "Server"))
            copy_attribute(child, "ID", server_guid);
        else if (xml_is_named(child, "Client"))
            copy_attribute(child, "ID", client_guid);
    }
}
