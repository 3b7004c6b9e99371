#include "base/log.h"
#include "requests/document.h"
#include "requests/manager.h"

optional_text xml_to_instance_name(const char *text, bool *is_cluster)
{
    const xml_doc doc = open_document(text);
    if (!doc)
        return std::nullopt;
    const xmlNode *node = find_child(xml_root(doc), "DBCfgDel");
    if (!node) {
        log_error("Failed to retrieve node DBCfgDel.");
        return std::nullopt;
    }
    optional_text name = xml_attribute(node, "InstanceName");
    if (const optional_text cluster = xml_attribute(node, "IsCluster"))
        *is_cluster = is_true(cluster);
    log_debug("xml_to_instance_name:%s", printable(name));
    return name;
}
