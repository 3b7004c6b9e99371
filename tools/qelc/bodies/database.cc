#include "tools/qelc/bodies/database.h"

#include "base/xml.h"

namespace {
// The host tells an absent attribute from an empty one.
void add_if_given(xmlNode *node, const char *name, const optional_text &value)
{
    if (value)
        xml_add_attribute(node, name, *value);
}
} // namespace

std::string database_document(const database_record &database)
{
    constexpr char oracle[] = "0";
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *node = xml_add_element(xml_root(doc), "DBSet");
    xml_add_attribute(node, "DBType", oracle);
    add_if_given(node, "DBUser", database.user);
    add_if_given(node, "DBPasswd", database.password);
    xml_add_attribute(node, "InstanceName", database.instance);
    xml_add_attribute(node, "ArchiveLog", database.archive_log ? "1" : "0");
    add_if_given(node, "OracleHome", database.oracle_home);
    xml_add_attribute(node, "IsCluster", "0");
    return xml_to_text(doc);
}

std::string database_end_document(const std::string &instance)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *node = xml_add_element(xml_root(doc), "DBCfgDel");
    xml_add_attribute(node, "InstanceName", instance);
    xml_add_attribute(node, "IsCluster", "0");
    return xml_to_text(doc);
}
