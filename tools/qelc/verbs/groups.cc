// Verbs for consistency groups.
#include "tools/qelc/views/groups.h"

#include "protocol/commands.h"
#include "tools/qelc/bodies/group.h"
#include "tools/qelc/verbs/families.h"

namespace {
optional_text members_body(const verb_options &given)
{
    return group_document(given.group, given.disks);
}

optional_text member_body(const verb_options &given)
{
    return group_member_document(given.group, given.disk);
}

optional_text group_end_body(const verb_options &given)
{
    return group_end_document(given.group);
}

constexpr verb table[] = {
    {.name = "group create",
     .usage = "NAME [GUID...]",
     .description = "create a group, with or without disks",
     .code = command::bg_create,
     .add_options = add_group_and_any_disks,
     .body = members_body},
    {.name = "group add",
     .usage = "NAME GUID...",
     .description = "add disks; they lose their own schedules",
     .note = "The disks lose their schedules even if there is no such group.\n",
     .code = command::add_disk_to_grp,
     .add_options = add_group_and_disks,
     .body = members_body},
    {.name = "group remove",
     .usage = "NAME GUID",
     .description = "remove a disk; it keeps the group's schedule",
     .note = "A protected disk that is not in the group also gets the group's schedule.\n",
     .code = command::rem_disk_from_bg,
     .add_options = add_group_and_disk,
     .body = member_body},
    {.name = "group delete",
     .usage = "NAME",
     .description = "delete a group with its schedule",
     .note = "The disks stay protected.\n",
     .code = command::del_backup_grp,
     .add_options = add_group_name,
     .body = group_end_body},
    {.name = "group list",
     .description = "show the groups and their disks",
     .code = command::kav_get_group,
     .view = groups_page,
     .json = groups_json},
};
} // namespace

std::span<const verb> group_verbs()
{
    return table;
}
