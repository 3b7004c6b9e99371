#include "tools/qelc/bodies/host.h"

#include "base/xml.h"

std::string alias_document(const std::string &alias)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(xml_add_element(xml_root(doc), "Client"), "Alias", alias);
    return xml_to_text(doc);
}

std::string channel_document(const channel_record &channel)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *node = xml_add_element(xml_root(doc), "Channel");
    xml_add_attribute(node, "InitiatorIqn", channel.initiator_iqn);
    xml_add_attribute(node, "TargetIqn", channel.target_iqn);
    xmlNode *path = xml_add_element(node, "Path");
    xml_add_attribute(path, "InitiatorIP", channel.initiator_ip);
    xml_add_attribute(path, "TargetIP", channel.target_ip);
    return xml_to_text(doc);
}
