#include "base/log.h"
#include "client/inventory.h"
#include "commands/group_request.h"
#include "commands/groups.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "jobs/timer.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/groups.h"

namespace {
// --- Adding ----------------------------------------------------------------------------------------------

// A schedule that is only in the record, without a job, stays. The caller holds the record's lock.
void remove_own_schedule(const char *guid)
{
    if (!job_find_cdp(guid))
        return;
    log_info("Disk %s has CDP schedule, remove it.", guid);
    _unregister_cdpsch(guid);
    for (size_t removed = qel_remove_schedules(g_client, guid); removed > 0; --removed)
        log_info("Disk %s has CDP schedule in config, remove it.", guid);
}

// The schedules go even if there is no such group. Everything is saved at once, so that a save that fails
// cannot keep half of it.
bool move_members(qel_group &wanted)
{
    const std::lock_guard held(g_client->lock);
    for (const qel_group_disk &member : wanted.member_list)
        remove_own_schedule(c_text(member.disk_guid));
    const auto count = static_cast<ptrdiff_t>(wanted.member_list.size());
    qel_group *group = qel_find_group(g_client, wanted.name);
    if (group)
        qel_add_members(g_client, *group, wanted.member_list);
    qel_save(g_client);
    log_info("Config updated.");
    log_info("Adding disks into group %s", printable(wanted.name));
    if (!group)
        return false;
    log_info("Found requested group %s", printable(group->name));
    const auto &members = group->member_list;
    for (auto member = std::prev(members.end(), count); member != members.end(); ++member)
        log_info("Adding disk %s into group %s.", printable(member->disk_guid), printable(group->name));
    return true;
}

int add_members(const group_command &command, const char *searching, const request *req)
{
    int status = status_ok;
    const std::unique_ptr<qel_group> wanted = enter_group_command(command, req, status);
    if (!wanted)
        return status;
    log_info("Retrieved group %s.", printable(wanted->name));
    log_info("%s", searching);
    if (move_members(*wanted))
        return complete(command);
    log_error("Unable to found the specified group, abort.");
    return status_failure;
}

// --- Removing ----------------------------------------------------------------------------------------------

optional_text mirror_of(const std::string &guid)
{
    const auto held = qel_inventory_lock();
    const qel_backup_t *backup = qel_find_backup(guid);
    return backup ? optional_text(backup->dest_guid) : std::nullopt;
}

// A schedule of the disk with the group's times, even if they are zeros. Empty if the disk has no mirror. The
// caller holds the record's lock.
std::list<qel_cdpsch> inherited_schedule(const qel_group &group, const std::string &guid)
{
    const optional_text mirror = mirror_of(guid);
    if (!mirror)
        return {};
    log_debug("Source local %s ,mirror %s ,con_start_time %d ,start_time %d ,timeout %d.", guid.c_str(),
              mirror->c_str(), static_cast<int>(group.cdp_con_start_time),
              static_cast<int>(group.cdp_start_time), static_cast<int>(group.cdp_timeout));
    return {{.local_lun = guid,
             .mirror_lun = mirror,
             .cdp_con_start_time = group.cdp_con_start_time,
             .cdp_start_time = group.cdp_start_time,
             .cdp_timeout = group.cdp_timeout}};
}

// The schedule is handed over even if the disk was not in the group. If several groups have that name, the
// disk gets one schedule, with the times of the last.
bool remove_member(const std::string &name, const optional_text &guid)
{
    const qel_cdpsch *handed_over = nullptr;
    const std::lock_guard held(g_client->lock);
    for (qel_group &group : g_client->group_list) {
        if (group.name != name)
            continue;
        // What needs memory comes before the first change.
        std::list<qel_cdpsch> inherited = inherited_schedule(group, *guid);
        const bool removed = qel_remove_member(g_client, group, guid);
        if (handed_over)
            qel_remove_schedule(g_client, handed_over);
        handed_over = inherited.empty() ? nullptr : &qel_add_schedule(g_client, std::move(inherited));
        if (handed_over)
            log_debug("Disk %s get Group sch success!", guid->c_str());
        if (removed || handed_over)
            qel_save(g_client);
        if (handed_over)
            _register_for_cdpsch(handed_over);
        if (removed)
            return true;
    }
    return false;
}

// Removes every disk that WANTED names from GROUP, in the order of GROUP's list.
bool remove_members(qel_group &group, const qel_group &wanted)
{
    std::list<qel_group_disk> leaving = group.member_list;
    leaving.remove_if(
        [&](const qel_group_disk &member) { return !qel_has_member(wanted, member.disk_guid); });
    for (const qel_group_disk &member : leaving) {
        qel_remove_member(g_client, group, member.disk_guid);
        log_info("Disk %s has removed", printable(member.disk_guid));
    }
    if (!leaving.empty())
        qel_save(g_client);
    return !leaving.empty();
}

bool remove_members_everywhere(const qel_group &wanted)
{
    bool removed = false;
    const std::lock_guard held(g_client->lock);
    for (qel_group &group : g_client->group_list) {
        if (!wanted.name || group.name != wanted.name)
            continue;
        log_info("Find requested group %s", group.name->c_str());
        removed |= remove_members(group, wanted);
    }
    return removed;
}

int refuse_removal()
{
    log_error("Cannot found the specified disk to be removed.");
    return status_failure;
}
} // namespace

int add_disk_to_grp(request *req)
{
    return add_members({.frame = {.received = "Recv cmd ADD_DISK_TO_BG",
                                  .null_request = "Failed to parse request, null pointer.",
                                  .not_adopted = "Failed to modify group, client is not protected."},
                        .parse = xml_to_backup_grp,
                        .unreadable = "Failed to retrieve the group of request.",
                        .complete = nullptr},
                       "Searching for CDP schedule of requested disks.", req);
}

int kav_add_member(request *req)
{
    return add_members(agent_group_command("Recv cmd: KAV_ADD_MEMBER", "Complete work: KAV_ADD_MEMBER."),
                       "Searching for CDP schedule of requeated disks.", req);
}

int rem_disk_from_bg(request *req)
{
    const int status = enter_command({.received = nullptr}, req);
    if (status != status_ok)
        return status;
    std::string guid;
    std::string name;
    if (xml_to_bg_info(&guid, &name, req->recv_xml.get()) < 0) {
        log_error("Failed to parse request.");
        return status_unreadable_request;
    }
    return remove_member(name, guid) ? status_ok : refuse_removal();
}

int kav_del_member(request *req)
{
    const group_command command =
        agent_group_command("Recv cmd: KAV_DEL_MEMBER", "Complete work: KAV_DEL_MEMBER.");
    int status = status_ok;
    const std::unique_ptr<qel_group> wanted = enter_group_command(command, req, status);
    if (!wanted)
        return status;
    return remove_members_everywhere(*wanted) ? complete(command) : refuse_removal();
}
