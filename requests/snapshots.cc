#include "requests/snapshots.h"

#include "base/log.h"
#include "requests/document.h"

namespace {
optional_text required(const xmlNode *snap, const char *name)
{
    optional_text value = xml_attribute(snap, name);
    if (!value)
        log_error("Failed to retrieve property %s from Snap node.", name);
    return value;
}

// How one side, the manager or the agent, writes a snapshot's source.
struct snap_form {
    bool has_cluster; // "IsCluster" is required, else it is not read
    const char *no_element;
    document_messages messages;
};

constexpr snap_form manager_snap = {.has_cluster = true,
                                    .no_element = "Failed to retrieve node Snap from XML request.",
                                    .messages = {.empty = "Failed to retrieve root element of the XML doc."}};
constexpr snap_form agent_snap = {.has_cluster = false,
                                  .no_element = "Failed to retrieve node Snap.",
                                  .messages = {.empty = "Failed to retrieve root element of the XML doc.",
                                               .wrong_root = "Error :xml's root node must be 'Tessaron'."}};

int read_snap(const char *text, const snap_form &form, snap_request *snap)
{
    const xml_doc doc = open_document(text, form.messages);
    if (!doc)
        return -1;
    const xmlNode *node = find_child(xml_root(doc), "Snap");
    if (!node) {
        log_error("%s", form.no_element);
        return -1;
    }
    const optional_text source_type = required(node, "SourceType");
    if (!source_type)
        return -1;
    snap->source_type = source_type == "0" ? snap_disk : snap_group;
    log_info("Source type for manual CDP creation: %d.", snap->source_type);
    snap->source = required(node, "Source");
    if (!snap->source)
        return -1;
    if (snap->source_type == snap_disk)
        take_braced(*snap->source);
    log_info("Source identity for manual CDP creation: %s.", snap->source->c_str());
    const optional_text is_cluster = form.has_cluster ? required(node, "IsCluster") : "0";
    if (!is_cluster)
        return -1;
    snap->is_cluster = is_true(is_cluster);
    return 0;
}

int read_volume(const xmlNode *snap, std::list<std::string> &list)
{
    const optional_text guid = xml_attribute(snap, "SnapVolGUID");
    if (!guid) {
        log_error("Node Snap doesn't contain SnapVolGUID property, ignore!");
        return 0;
    }
    std::string *entry = list_append(list);
    if (!entry) {
        log_error("Failed to allocate memory for extracting snapshots' guids.");
        return -1;
    }
    *entry = *guid;
    log_debug("Extracted GUID: %s", entry->c_str());
    take_braced(*entry);
    return 0;
}
} // namespace

int xml_to_snap_guid(const char *text, snap_request *snap)
{
    return read_snap(text, manager_snap, snap);
}

int xml_kav_to_snapshot(const char *text, snap_request *snap)
{
    return text ? read_snap(text, agent_snap, snap) : -1;
}

int xml_to_snap_vol_guid(const char *text, std::list<std::string> *list)
{
    if (!text) {
        log_error("Null xml doc.");
        return -1;
    }
    if (!list) {
        log_error("Null list of guids.");
        return -1;
    }
    list->clear();
    const xml_doc doc = open_document(text);
    if (!doc)
        return -1;
    for (const xmlNode *child : xml_children{xml_root(doc)}) {
        if (xml_is_named(child, "Snap") && read_volume(child, *list) < 0)
            return -1;
    }
    return 0;
}
