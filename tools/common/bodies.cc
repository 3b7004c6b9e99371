#include "tools/common/bodies.h"

#include "base/xml.h"

std::string manager_document(const manager_record &manager)
{
    std::string addresses;
    for (const std::string &address : manager.ips)
        addresses += (addresses.empty() ? "" : " ") + address;
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *server = xml_add_element(xml_root(doc), "Server");
    xml_add_attribute(server, "ID", manager.guid);
    xml_add_attribute(server, "IPs", addresses);
    // The client would log in to a target with an empty name, too.
    if (manager.target_iqn)
        xml_add_attribute(server, "TargetIqn", *manager.target_iqn);
    return xml_to_text(doc);
}

std::string pair_document(const std::string &server_guid, const std::string &client_guid)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(xml_add_element(xml_root(doc), "Server"), "ID", server_guid);
    xml_add_attribute(xml_add_element(xml_root(doc), "Client"), "ID", client_guid);
    return xml_to_text(doc);
}
