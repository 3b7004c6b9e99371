// Verbs for consistency groups.
#include "tools/qelc/views/groups.h"

#include "protocol/commands.h"
#include "tools/qelc/bodies/group.h"
#include "tools/qelc/verbs/families.h"

#include <algorithm>

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

bool has(const group_view *group, const std::string &guid)
{
    return group && std::ranges::find(group->disks, guid) != group->disks.end();
}

// The disks, none of which may be wrong or in the group already: the daemon would take them all.
std::vector<verb_item> new_members(host &at, const verb_options &given, const group_view *group)
{
    std::vector<verb_item> items =
        given.disks.empty() ? std::vector<verb_item>() : at.disk_items(given.disks);
    for (verb_item &item : items) {
        if (item.is_open() && has(group, item.guid))
            item.refuse(exit_refused, "it is in the group already");
        if (!item.is_open())
            throw verb_end{item.status, item.name + ": " + item.text,
                           "qelc disks shows the disks of the host"};
    }
    return items;
}

std::vector<std::string> guids_of(const std::vector<verb_item> &items)
{
    std::vector<std::string> guids;
    for (const verb_item &item : items)
        guids.push_back(item.guid);
    return guids;
}

// Whether they are in the group now.
void look_for(host &at, const std::string &name, std::vector<verb_item> &items)
{
    const std::vector<group_view> groups = at.groups();
    const group_view *group = find_group(groups, name);
    for (verb_item &item : items) {
        if (has(group, item.guid))
            item.text = "is in group " + name;
        else
            item.refuse(exit_refused, "it is not in group " + name);
    }
}

outcome planned(std::vector<verb_item> items, const std::string &text)
{
    for (verb_item &item : items)
        item.text = text;
    return {.items = std::move(items), .is_dry_run = true};
}

outcome create_group(host &at, const verb_options &given)
{
    if (find_group(at.groups(), given.group))
        throw verb_end{exit_refused, "there is a group " + given.group + " already",
                       "qelc group add " + given.group + " DISK adds to it"};
    std::vector<verb_item> items = new_members(at, given, nullptr);
    verb_item group{"group", given.group, "", exit_ok, "is there"};
    if (given.dry_run) {
        items.insert(items.begin(), group);
        return planned(std::move(items), "in the new group " + given.group);
    }
    require_success(*at.ask(command::bg_create, group_document(given.group, guids_of(items))));
    look_for(at, given.group, items);
    require_group(at.groups(), given.group);
    items.insert(items.begin(), group);
    return outcome_of(std::move(items), see_log);
}

outcome add_to_group(host &at, const verb_options &given)
{
    const std::vector<group_view> groups = at.groups();
    std::vector<verb_item> items = new_members(at, given, &require_group(groups, given.group));
    if (given.dry_run)
        return planned(std::move(items), "in group " + given.group + ", without a schedule of its own");
    require_success(*at.ask(command::add_disk_to_grp, group_document(given.group, guids_of(items))));
    look_for(at, given.group, items);
    return outcome_of(std::move(items), see_log);
}

outcome remove_from_group(host &at, const verb_options &given)
{
    const std::vector<group_view> groups = at.groups();
    const group_view &group = require_group(groups, given.group);
    const named_disk disk = at.disk(given.disk);
    if (!has(&group, disk.guid))
        throw verb_end{exit_not_found, disk.name + " is not in group " + given.group,
                       "qelc group list shows the groups and their disks"};
    verb_item item{"disk", disk.name, disk.guid, exit_ok, "is not in group " + given.group + " any more"};
    if (given.dry_run)
        return planned({item}, "out of group " + given.group + ", with the schedule of the group");
    require_success(*at.ask(command::rem_disk_from_bg, group_member_document(given.group, disk.guid)));
    const std::vector<group_view> after = at.groups();
    if (has(find_group(after, given.group), disk.guid))
        item.refuse(exit_refused, "it is still in the group");
    return outcome_of({item}, see_log);
}

outcome delete_group(host &at, const verb_options &given)
{
    const std::vector<group_view> groups = at.groups();
    require_group(groups, given.group);
    verb_item item{"group", given.group, "", exit_ok, "is deleted, and its schedule"};
    if (given.dry_run)
        return planned({item}, "deleted, with its schedule");
    require_success(*at.ask(command::del_backup_grp, group_end_document(given.group)));
    if (find_group(at.groups(), given.group))
        item.refuse(exit_refused, "a group of that name is still there");
    return outcome_of({item}, see_log);
}

constexpr verb table[] = {
    {.name = "group create",
     .usage = "NAME [DISK...] [--dry-run]",
     .description = "create a group, with or without disks",
     .code = command::bg_create,
     .add_options = add_group_and_any_disks,
     .body = members_body,
     .act = create_group},
    {.name = "group add",
     .usage = "NAME DISK... [--dry-run]",
     .description = "add disks; they lose their own schedules",
     .code = command::add_disk_to_grp,
     .add_options = add_group_and_disks,
     .body = members_body,
     .act = add_to_group},
    {.name = "group remove",
     .usage = "NAME DISK [--dry-run]",
     .description = "remove a disk; it keeps the group's schedule",
     .code = command::rem_disk_from_bg,
     .add_options = add_group_and_disk,
     .body = member_body,
     .act = remove_from_group},
    {.name = "group delete",
     .usage = "NAME [--dry-run]",
     .description = "delete a group with its schedule",
     .note = "The disks stay protected.\n",
     .code = command::del_backup_grp,
     .add_options = add_group_name,
     .body = group_end_body,
     .act = delete_group},
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
