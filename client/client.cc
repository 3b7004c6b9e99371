#include "client/client.h"

#include "base/log.h"

#include <algorithm>
#include <new>
#include <utility>

qel_t *g_client = nullptr;

void qel_release(qel_t *c)
{
    const std::lock_guard changing(c->content_lock);
    c->guid.reset();
    c->alias.reset();
    c->manager.reset();
    c->cdpsch_list.clear();
    c->group_list.clear();
}

int qel_mngr_appoint(const qel_manager *m, qel_t *c)
{
    if (!c) {
        log_error("Failed set manager, null pointer.");
        return -1;
    }
    if (!m) {
        if (c->manager)
            log_info("Delete manager '%s'", printable(c->manager->guid));
        else
            log_info("Delete manager");
        const std::lock_guard changing(c->content_lock);
        c->manager.reset();
        c->alias.reset();
        return 0;
    }
    std::unique_ptr<qel_manager> appointed(new (std::nothrow) qel_manager);
    if (!appointed) {
        log_error("Failed to allocate memory");
        return -1;
    }
    appointed->guid = m->guid;
    for (const qel_addr &address : m->ip_list) {
        if (qel_addr *entry = list_append(appointed->ip_list))
            *entry = address;
        else
            log_error("Failed to allocate memory");
    }
    {
        const std::lock_guard changing(c->content_lock);
        c->manager = std::move(appointed);
    }
    log_info("Appoint new manager '%s'", printable(c->manager->guid));
    return 0;
}

int qel_mngr_remove(qel_t *c)
{
    return qel_mngr_appoint(nullptr, c);
}

int qel_rename_client(qel_t *c, const char *alias)
{
    if (!c || !alias) {
        log_error("Failed to get context");
        return -1;
    }
    const std::lock_guard changing(c->content_lock);
    c->alias = alias;
    return 0;
}

void qel_set_target_iqn(qel_t *c, const char *iqn)
{
    const std::lock_guard changing(c->content_lock);
    if (c->manager)
        c->manager->target_iqn = optional_copy(iqn);
}

qel_cdpsch &qel_add_schedule(qel_t *c, std::list<qel_cdpsch> added)
{
    const std::lock_guard changing(c->content_lock);
    c->cdpsch_list.splice(c->cdpsch_list.end(), added);
    return c->cdpsch_list.back();
}

void qel_remove_schedule(qel_t *c, const qel_cdpsch *schedule)
{
    const std::lock_guard changing(c->content_lock);
    c->cdpsch_list.remove_if([schedule](const qel_cdpsch &entry) { return &entry == schedule; });
}

size_t qel_remove_schedules(qel_t *c, const char *local_lun)
{
    const std::lock_guard changing(c->content_lock);
    return c->cdpsch_list.remove_if(
        [local_lun](const qel_cdpsch &schedule) { return !local_lun || schedule.local_lun == local_lun; });
}

qel_cdpsch *qel_find_schedule(qel_t *c, const std::string &local_lun)
{
    const auto found =
        std::find_if(c->cdpsch_list.begin(), c->cdpsch_list.end(),
                     [&](const qel_cdpsch &schedule) { return schedule.local_lun == local_lun; });
    return found == c->cdpsch_list.end() ? nullptr : &*found;
}

qel_group *qel_find_group(qel_t *c, const optional_text &name)
{
    const auto found = std::find_if(c->group_list.begin(), c->group_list.end(),
                                    [&](const qel_group &group) { return name && group.name == name; });
    return found == c->group_list.end() ? nullptr : &*found;
}

void qel_add_group(qel_t *c, qel_group group)
{
    const std::lock_guard changing(c->content_lock);
    c->group_list.push_back(std::move(group));
}

void qel_remove_group(qel_t *c, const qel_group *group)
{
    const std::lock_guard changing(c->content_lock);
    c->group_list.remove_if([group](const qel_group &entry) { return &entry == group; });
}

bool qel_has_member(const qel_group &group, const optional_text &disk_guid)
{
    return std::any_of(group.member_list.begin(), group.member_list.end(),
                       [&](const qel_group_disk &member) { return member.disk_guid == disk_guid; });
}

void qel_add_members(qel_t *c, qel_group &group, std::list<qel_group_disk> &members)
{
    const std::lock_guard changing(c->content_lock);
    group.member_list.splice(group.member_list.end(), members);
}

bool qel_remove_member(qel_t *c, qel_group &group, const optional_text &disk_guid)
{
    const std::lock_guard changing(c->content_lock);
    auto &members = group.member_list;
    const auto found = std::find_if(members.begin(), members.end(), [&](const qel_group_disk &member) {
        return member.disk_guid == disk_guid;
    });
    if (found == members.end())
        return false;
    members.erase(found);
    return true;
}

void qel_remove_groups(qel_t *c)
{
    const std::lock_guard changing(c->content_lock);
    c->group_list.clear();
}

int qel_is_protected(const qel_t *c)
{
    if (!c) {
        log_error("Fatal: unkown qel handle");
        return -1;
    }
    if (c->manager && c->manager->guid && !c->manager->guid->empty()) {
        log_debug("Client is managed by %s", c->manager->guid->c_str());
        return 1;
    }
    log_debug("Client is not managed by anyone");
    return 0;
}

int qel_is_pair(const char *manager_guid, const char *client_guid, const qel_t *c)
{
    if (!manager_guid || !client_guid || !c) {
        log_error("Invalid input parameter");
        return 0;
    }
    if (!c->guid) {
        log_error("Fatal: unkown client guid");
        return 0;
    }
    if (!c->manager || !c->manager->guid) {
        log_debug("There is no manager");
        return 0;
    }
    log_debug("Pair: manager:%s VS recv:%s", c->manager->guid->c_str(), manager_guid);
    log_debug("Pair: localhost:%s VS recv:%s", c->guid->c_str(), client_guid);
    return *c->manager->guid == manager_guid && *c->guid == client_guid;
}
