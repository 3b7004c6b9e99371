#include "base/log.h"
#include "base/xml.h"
#include "client/client.h"
#include "client/inventory.h"
#include "commands/frame.h"
#include "commands/schedules.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/snapshots.h"

namespace {
// The common beginning of both commands.
int read_source(const char *received, const request *req, snap_request &snap)
{
    const int status = enter_command(agent_frame(received), req);
    if (status != status_ok)
        return status;
    if (xml_kav_to_snapshot(req->recv_xml.get(), &snap) == 0)
        return status_ok;
    log_error("'Failed to parse snapshot creation request.");
    return status_unreadable_request;
}

// --- Reading ---------------------------------------------------------------------------------------------

// The console's start and the interval as texts of the answer.
struct shown_times {
    std::string start;
    std::string interval;
};

shown_times show(const char *kind, const std::string &name, uint64_t start, uint32_t interval)
{
    shown_times shown = {std::to_string(start), std::to_string(interval)};
    log_info("Schedule for %s %s,console start time:%s,interval:%s.", kind, name.c_str(), shown.start.c_str(),
             shown.interval.c_str());
    return shown;
}

std::optional<shown_times> group_times(const std::string &name)
{
    log_info("Get CDP schedule for group %s.", name.c_str());
    const std::lock_guard held(g_client->lock);
    if (const qel_group *group = qel_find_group(g_client, name))
        return show("group", name, group->cdp_con_start_time, group->cdp_timeout);
    log_error("Failed to find group %s in existing gropu list.", name.c_str());
    return std::nullopt;
}

std::optional<shown_times> recorded_times(const std::string &guid)
{
    const std::lock_guard held(g_client->lock);
    if (const qel_cdpsch *schedule = qel_find_schedule(g_client, guid))
        return show("disk", guid, schedule->cdp_con_start_time, schedule->cdp_timeout);
    log_info("Failed to find disk %s in existing schedule list.", guid.c_str());
    return std::nullopt;
}

std::optional<shown_times> relationship_times(const std::string &guid)
{
    const auto held = qel_inventory_lock();
    log_info("Looking for disk %s in backup list.", guid.c_str());
    if (const qel_backup_t *backup = qel_find_backup(guid))
        return show("disk", guid, backup->start_time, backup->interval);
    log_info("Failed to find disk %s in backup list.", guid.c_str());
    return std::nullopt;
}

std::optional<shown_times> disk_times(const std::string &guid)
{
    log_info("Get CDP schedule for Single disk %s.", guid.c_str());
    const std::optional<shown_times> times = recorded_times(guid);
    return times ? times : relationship_times(guid);
}

// --- Removing ----------------------------------------------------------------------------------------------

int remove_group_schedule(const std::string &name)
{
    log_info("Delete CDP schedule for group %s.", name.c_str());
    std::unique_lock held(g_client->lock);
    qel_group *group = qel_find_group(g_client, name);
    if (!group) {
        held.unlock();
        log_error("Failed to found CDP schedule for group %s.", name.c_str());
        log_info("Complete cmd KAV_DEL_CDP_SCHEDULE");
        return status_failure;
    }
    log_info("Found CDP schedule for group %s.", name.c_str());
    if (group->cdp_con_start_time != 0 && group->cdp_timeout != 0) {
        _unregister_grpsch(name.c_str());
        log_info("Background running CDP schedule for group %s is removed.", name.c_str());
    }
    qel_set_times(g_client, *group, {});
    qel_save(g_client);
    return status_ok;
}

int remove_disk_schedule(const std::string &guid)
{
    log_info("Looking for CDP schedule for disk %s.", guid.c_str());
    std::unique_lock held(g_client->lock);
    const qel_cdpsch *schedule = qel_find_schedule(g_client, guid);
    if (!schedule) {
        log_info("Failed to find disk %s in backup list.", guid.c_str());
        // Required: the lock stays held, and every thread that needs the record waits from now on.
        static_cast<void>(held.release());
        return status_failure;
    }
    log_info("Found CDP schedule for disk %s.", guid.c_str());
    qel_remove_schedule(g_client, schedule);
    _unregister_cdpsch(guid.c_str());
    log_info("Background-running CDP Schedule for disk %s is removed.", guid.c_str());
    qel_save(g_client);
    return status_ok;
}
} // namespace

int kav_get_cdp_schedule(request *req)
{
    snap_request snap;
    const int status = read_source("Recv cmd: KAV_GET_CDP_SCHEDULE", req, snap);
    if (status != status_ok)
        return status;
    const auto times = snap.source_type == snap_group ? group_times(*snap.source) : disk_times(*snap.source);
    if (!times)
        return status_failure;
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *schedule = xml_add_element(xml_root(doc), "Schedule");
    xml_add_attribute(schedule, "StartTime", times->start);
    xml_add_attribute(schedule, "IntervalSeconds", times->interval);
    std::string text = xml_to_text(doc);
    log_info("%s", text.c_str());
    set_send_xml(*req, std::move(text));
    log_info("Complete work: KAV_GET_CDP_SCHEDULE");
    return status_ok;
}

int kav_del_cdp_schedule(request *req)
{
    snap_request snap;
    int status = read_source("Recv cmd: KAV_DEL_CDP_SCHEDULE", req, snap);
    if (status != status_ok)
        return status;
    status = snap.source_type == snap_group ? remove_group_schedule(*snap.source)
                                            : remove_disk_schedule(*snap.source);
    if (status == status_ok)
        log_info("Complete work: KAV_DEL_CDP_SCHEDULE.");
    return status;
}
