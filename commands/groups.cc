#include "commands/groups.h"

#include "base/log.h"
#include "base/xml.h"
#include "commands/group_request.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/groups.h"

namespace {
int create_group(const group_command &command, int name_in_use, const request *req)
{
    int status = status_ok;
    const std::unique_ptr<qel_group> wanted = enter_group_command(command, req, status);
    if (!wanted)
        return status;
    if (!wanted->name) {
        log_error("Failed to create group, it has no name.");
        return status_unreadable_request;
    }
    {
        const std::lock_guard held(g_client->lock);
        if (qel_find_group(g_client, wanted->name)) {
            log_error("Failed to create group, the group name already in use.");
            return name_in_use;
        }
        qel_add_group(g_client, *wanted);
        log_info("Group %s is correctly added.", wanted->name->c_str());
        qel_save(g_client);
        log_info("New configuration is saved to config file.");
    }
    return complete(command);
}

enum class unknown_group { logged, silent };

int delete_group(const group_command &command, unknown_group unknown, const request *req)
{
    int status = status_ok;
    const std::unique_ptr<qel_group> wanted = enter_group_command(command, req, status);
    if (!wanted)
        return status;
    {
        const std::lock_guard held(g_client->lock);
        const qel_group *group = qel_find_group(g_client, wanted->name);
        if (!group) {
            if (unknown == unknown_group::logged)
                log_info("Failed to found group %s in group list.", printable(wanted->name));
            return status_failure;
        }
        _unregister_grpsch(c_text(wanted->name));
        qel_remove_group(g_client, group);
        qel_save(g_client);
    }
    return complete(command);
}

std::string group_list_document()
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *list = xml_add_element(xml_root(doc), "GroupList");
    const std::lock_guard held(g_client->lock);
    if (g_client->group_list.empty())
        log_info("GroupList is empty.");
    for (const qel_group &group : g_client->group_list) {
        xmlNode *entry = xml_add_element(list, "Group");
        xml_add_attribute(entry, "name", group.name);
        for (const qel_group_disk &member : group.member_list)
            xml_add_attribute(xml_add_element(entry, "Disk"), "guid", member.disk_guid);
    }
    return xml_to_text(doc);
}
} // namespace

int bg_create(request *req)
{
    return create_group(
        {.frame = {.received = nullptr,
                   .null_request = "Failed to parse the request, null pointer.",
                   .not_adopted = "Failed to create group, client is not affected to a server."},
         .parse = xml_to_backup_grp,
         .unreadable = "Failed to parse the XML doc of request.",
         .complete = nullptr},
        status_failure, req);
}

int kav_create_group(request *req)
{
    return create_group(
        agent_group_command("Recv cmd: KAV_CREATE_GROUP.", "Complete work : KAV_CREATE_GROUP."),
        status_group_in_use, req);
}

int del_backup_grp(request *req)
{
    return delete_group({.frame = {.received = "Recv cmd: DEL_BACKUP_GRP",
                                   .null_request = "Failed to process request, null pointer.",
                                   .not_adopted = "Failed to process request, client is not protected."},
                         .parse = xml_to_del_grp,
                         .unreadable = "Failed to retrive group to be deleted.",
                         .complete = "Cmd DEL_BACKUP_GRP complete successfully."},
                        unknown_group::silent, req);
}

int kav_delete_group(request *req)
{
    return delete_group(agent_group_command("Recv cmd: KAV_DELETE_GROUP", "Complete work :KAV_DELETE_GROUP."),
                        unknown_group::logged, req);
}

int kav_get_group(request *req)
{
    const group_command command =
        agent_group_command("Recv cmd: KAV_GET_GROUP", "Complete work:KAV_GET_GROUP");
    const int status = enter_command(command.frame, req);
    if (status != status_ok)
        return status;
    set_send_xml(*req, group_list_document());
    return complete(command);
}
