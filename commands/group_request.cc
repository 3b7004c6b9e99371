#include "commands/group_request.h"

#include "base/log.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/groups.h"

group_command agent_group_command(const char *received, const char *complete)
{
    return {.frame = agent_frame(received),
            .parse = xml_kav_to_backup_grp,
            .unreadable = "Failed to parse the XML doc of request.",
            .complete = complete};
}

std::unique_ptr<qel_group> enter_group_command(const group_command &command, const request *req, int &status)
{
    status = enter_command(command.frame, req);
    if (status != status_ok)
        return nullptr;
    bool is_cluster = false; // read, but not used
    std::unique_ptr<qel_group> group = command.parse(req->recv_xml.get(), &is_cluster);
    if (!group) {
        log_error("%s", command.unreadable);
        status = status_unreadable_request;
    }
    return group;
}

int complete(const group_command &command)
{
    if (command.complete)
        log_info("%s", command.complete);
    return status_ok;
}
