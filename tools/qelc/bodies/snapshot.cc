#include "tools/qelc/bodies/snapshot.h"

#include "base/xml.h"

namespace {
// The GUID of a disk is wrapped here, the name of a group is not.
xmlNode *add_snap(const xml_doc &doc, const snapshot_source &source)
{
    xmlNode *snap = xml_add_element(xml_root(doc), "Snap");
    xml_add_attribute(snap, "SourceType", source_type(source));
    xml_add_attribute(snap, "Source", source.is_group ? source.name : wrap_guid(source.name));
    return snap;
}
} // namespace

std::string snapshot_document(const snapshot_source &source)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(add_snap(doc, source), "IsCluster", "0");
    return xml_to_text(doc);
}

std::string snapshot_source_document(const snapshot_source &source)
{
    const xml_doc doc = xml_new_document("Tessaron");
    add_snap(doc, source);
    return xml_to_text(doc);
}

std::string snapshot_volumes_document(const std::vector<std::string> &volumes)
{
    const xml_doc doc = xml_new_document("Tessaron");
    for (const std::string &volume : volumes)
        xml_add_attribute(xml_add_element(xml_root(doc), "Snap"), "SnapVolGUID", wrap_guid(volume));
    return xml_to_text(doc);
}
