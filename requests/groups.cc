#include "requests/groups.h"

#include "base/log.h"
#include "requests/document.h"

#include <new>

namespace {
std::unique_ptr<qel_group> new_group(const char *failure)
{
    std::unique_ptr<qel_group> group(new (std::nothrow) qel_group);
    if (!group)
        log_error("%s", failure);
    return group;
}

// How one side, the manager or the agent, writes a group with members.
struct group_form {
    const char *element;
    const char *name;
    const char *member;
    const char *guid;
    const char *no_element;
    const char *no_memory; // for a member
    document_messages messages;
};

constexpr group_form manager_group = {.element = "BGCreate",
                                      .name = "BGName",
                                      .member = "SrcDisk",
                                      .guid = "SrcGUID",
                                      .no_element = "Failed to retrieve node BGCreate.",
                                      .no_memory = "Failed to allocate memory for group member.",
                                      .messages = {}};
constexpr group_form agent_group = {.element = "Group",
                                    .name = "name",
                                    .member = "Disk",
                                    .guid = "guid",
                                    .no_element = "Failed to retrieve node Group.",
                                    .no_memory = "Failed to allocate memory fot group member.",
                                    .messages = {.unreadable = "Failed to parse xml document.",
                                                 .empty = "Empty xml document.",
                                                 .wrong_root = "Error: xml's root node must be 'Tessaron'."}};

bool read_member(const xmlNode *node, const group_form &form, std::list<qel_group_disk> &list)
{
    if (!xml_is_named(node, form.member)) {
        log_warning("Unexpected node for disk member creation, ignore.");
        return false;
    }
    optional_text guid = xml_attribute(node, form.guid);
    if (!guid) {
        log_warning("Missing property SrcGUID, ignore."); // the same text for the agent's "guid"
        return false;
    }
    qel_group_disk *member = list_append(list);
    if (!member) {
        log_warning("%s", form.no_memory);
        return false;
    }
    log_info("Disk %s retrieved.", guid->c_str());
    member->disk_guid = std::move(guid);
    return true;
}

std::unique_ptr<qel_group> read_group(const char *text, const group_form &form, bool *is_cluster)
{
    *is_cluster = false;
    const xml_doc doc = open_document(text, form.messages);
    if (!doc)
        return nullptr;
    const xmlNode *node = find_child(xml_root(doc), form.element);
    if (!node) {
        log_error("%s", form.no_element);
        return nullptr;
    }
    std::unique_ptr<qel_group> group = new_group("Failed to allocate memory for disk group creation.");
    if (!group)
        return nullptr;
    group->name = xml_attribute(node, form.name);
    *is_cluster = is_true(xml_attribute(node, "IsCluster"));
    for (const xmlNode *child = node->children; child;) {
        // Only a member moves on to the next child; anything else loops here for ever. That is required: a
        // group must not be made from part of a request.
        if (read_member(child, form, group->member_list))
            child = child->next;
    }
    return group;
}
} // namespace

std::unique_ptr<qel_group> xml_to_backup_grp(const char *text, bool *is_cluster)
{
    return read_group(text, manager_group, is_cluster);
}

std::unique_ptr<qel_group> xml_kav_to_backup_grp(const char *text, bool *is_cluster)
{
    return read_group(text, agent_group, is_cluster);
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
