#include "tools/qelc/bodies/group.h"

#include "base/xml.h"

namespace {
xmlNode *add_group(const xml_doc &doc, const char *element, const std::string &group)
{
    xmlNode *node = xml_add_element(xml_root(doc), element);
    xml_add_attribute(node, "BGName", group);
    return node;
}
} // namespace

std::string group_document(const std::string &group, std::span<const std::string> disks)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *node = add_group(doc, "BGCreate", group);
    xml_add_attribute(node, "IsCluster", "0");
    for (const std::string &disk : disks)
        xml_add_attribute(xml_add_element(node, "SrcDisk"), "SrcGUID", disk);
    return xml_to_text(doc);
}

std::string group_member_document(const std::string &group, const std::string &disk)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(add_group(doc, "RemBGDisk", group), "SrcGUID", disk);
    return xml_to_text(doc);
}

std::string group_end_document(const std::string &group)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(add_group(doc, "BGDelete", group), "IsCluster", "0");
    return xml_to_text(doc);
}
