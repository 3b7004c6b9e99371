#include "base/log.h"
#include "requests/document.h"
#include "requests/manager.h"

#include <new>

namespace {
std::unique_ptr<qel_group> new_group(const char *failure)
{
    std::unique_ptr<qel_group> group(new (std::nothrow) qel_group);
    if (!group)
        log_error("%s", failure);
    return group;
}

bool read_member(const xmlNode *node, std::list<qel_group_disk> &list)
{
    if (!xml_is_named(node, "SrcDisk")) {
        log_warning("Unexpected node for disk member creation, ignore.");
        return false;
    }
    optional_text guid = xml_attribute(node, "SrcGUID");
    if (!guid) {
        log_warning("Missing property SrcGUID, ignore.");
        return false;
    }
    qel_group_disk *member = list_append(list);
    if (!member) {
        log_warning("Failed to allocate memory for group member.");
        return false;
    }
    log_info("Disk %s retrieved.", guid->c_str());
    member->disk_guid = std::move(guid);
    return true;
}
} // namespace

std::unique_ptr<qel_group> xml_to_backup_grp(const char *text, bool *is_cluster)
{
    *is_cluster = false;
    const xml_doc doc = open_document(text);
    if (!doc)
        return nullptr;
    const xmlNode *node = find_child(xml_root(doc), "BGCreate");
    if (!node) {
        log_error("Failed to retrieve node BGCreate.");
        return nullptr;
    }
    std::unique_ptr<qel_group> group = new_group("Failed to allocate memory for disk group creation.");
    if (!group)
        return nullptr;
    group->name = xml_attribute(node, "BGName");
    *is_cluster = is_true(xml_attribute(node, "IsCluster"));
    for (const xmlNode *child = node->children; child;) {
        // Only a member leads on to the next child. Managers send nothing else, and the system has always
        // stood still here rather than made a group of part of a request.
        if (read_member(child, group->member_list))
            child = child->next;
    }
    return group;
}

int xml_to_bg_info(std::string *disk_guid, std::string *group, const char *text)
{
    const xml_doc doc = open_document(text);
    if (!doc)
        return -1;
    if (const xmlNode *node = first_child_named(doc, "RemBGDisk")) {
        copy_attribute(node, "BGName", group);
        copy_attribute(node, "SrcGUID", disk_guid);
    }
    log_debug("xml_to_bg_info:group(%s) guid(%s)", group->c_str(), disk_guid->c_str());
    return 0;
}

std::unique_ptr<qel_group> xml_to_del_grp(const char *text, bool *is_cluster)
{
    const xml_doc doc = open_document(text, {.unreadable = "Failed to parse xml buffer.",
                                             .empty = "Failed to retrieve root element.",
                                             .wrong_root = "Unexpected root element."});
    if (!doc)
        return nullptr;
    const xmlNode *node = find_child(xml_root(doc), "BGDelete");
    if (!node) {
        log_error("Failed to retrieve node BGDelete");
        return nullptr;
    }
    optional_text name = xml_attribute(node, "BGName");
    if (!name) {
        log_error("Missing property BGName.");
        return nullptr;
    }
    std::unique_ptr<qel_group> group = new_group("Failed to allocate memory for group.");
    if (!group)
        return nullptr;
    group->name = std::move(name);
    *is_cluster = is_true(xml_attribute(node, "IsCluster"));
    return group;
}
