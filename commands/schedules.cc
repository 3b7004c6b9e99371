#include "commands/schedules.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/number.h"
#include "base/xml.h"
#include "client/client.h"
#include "client/inventory.h"
#include "commands/adoption.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/document.h"

#include <algorithm>

namespace {
struct schedule_request {
    bool is_group = false;
    std::string source; // the group's name, or the disk's GUID
    cdp_times times;
};

// --- The request -------------------------------------------------------------------------------------------

const xmlNode *required_child(const xmlNode *parent, const char *name)
{
    const xmlNode *child = find_child(parent, name);
    if (!child)
        log_error("Failed to retrieve node %s.", name);
    return child;
}

// Stores the attribute. False after a log line when there is none.
bool read_attribute(const xmlNode *node, const char *name, std::string &value)
{
    optional_text text = xml_attribute(node, name);
    if (!text) {
        log_error("Failed to retrieve property %s of node %s.", name,
                  reinterpret_cast<const char *>(node->name));
        return false;
    }
    value = *std::move(text);
    return true;
}

int read_request(const char *text, schedule_request &wanted)
{
    const xml_doc doc = open_document(text, {.unreadable = "Failed to parse XML doc.",
                                             .empty = "Invalid XML format, unexpected root element.",
                                             .wrong_root = "Invalid XML format, unexpected root element."});
    if (!doc)
        return -1;
    const xmlNode *backup = required_child(xml_root(doc), "Backup");
    const xmlNode *schedule = backup ? required_child(backup, "Schedule") : nullptr;
    std::string source_type;
    std::string start;
    std::string interval;
    if (!schedule || !read_attribute(backup, "SourceType", source_type) ||
        !read_attribute(backup, "Source", wanted.source) || !read_attribute(schedule, "StartTime", start) ||
        !read_attribute(schedule, "IntervalSeconds", interval))
        return -1;
    log_info("Received new schedule, console start time: %s, interval: %s", start.c_str(), interval.c_str());
    wanted.is_group = source_type == "1";
    wanted.times = cdp_times_from(scan_unsigned(start.c_str()), scan_u32(interval.c_str()), clock_wall());
    return 0;
}

void log_new_times(const char *kind, const schedule_request &wanted)
{
    log_info("New schedule for %s %s, console start time: %lu, start time: %lu, interval: %u.", kind,
             wanted.source.c_str(), wanted.times.con_start_time, wanted.times.start_time,
             wanted.times.timeout);
}

// --- Groups ------------------------------------------------------------------------------------------------

// A schedule with only one of start and interval is stored, and the job that runs is left alone.
void apply_to_job(const qel_group &group, const cdp_times &times)
{
    const char *name = c_text(group.name);
    if (times.are_set()) {
        _register_for_grpsch(&group);
        log_info("Background-running CDP schedule for group %s is updated.", name);
    } else if (times.are_clear()) {
        _unregister_grpsch(name);
        log_info("Background running CDP schedule for group %s is removed.", name);
    }
}

int schedule_group(const schedule_request &wanted)
{
    const char *name = wanted.source.c_str();
    log_info("Updaing CDP schedule for group %s.", name);
    const std::lock_guard held(g_client->lock);
    log_info("Cou cou ! I'm here.");
    qel_group *group = qel_find_group(g_client, wanted.source);
    if (!group) {
        log_info("Failed to find group.");
        return -1;
    }
    log_new_times("group", wanted);
    qel_set_times(g_client, *group, wanted.times);
    apply_to_job(*group, wanted.times);
    qel_save(g_client);
    log_info("Config file is updated for group %s.", name);
    return 0;
}

// --- Single disks ------------------------------------------------------------------------------------------

qel_cdpsch *find_schedule(const std::string &guid)
{
    const auto found = std::find_if(g_client->cdpsch_list.begin(), g_client->cdpsch_list.end(),
                                    [&](const qel_cdpsch &entry) { return entry.local_lun == guid; });
    return found == g_client->cdpsch_list.end() ? nullptr : &*found;
}

// False when the disk has no schedule yet.
bool change_schedule(const schedule_request &wanted)
{
    const char *guid = wanted.source.c_str();
    const std::lock_guard held(g_client->lock);
    log_info("Looking for disk %s in existing schedule list.", guid);
    qel_cdpsch *schedule = find_schedule(wanted.source);
    if (!schedule)
        return false;
    log_new_times("disk", wanted);
    qel_set_times(g_client, *schedule, wanted.times);
    if (wanted.times.are_set()) {
        _register_for_cdpsch(schedule);
        log_info("Background-running CDP schedule for disk %s is updated.", guid);
    } else if (wanted.times.are_clear()) {
        qel_remove_schedule(g_client, schedule);
        _unregister_cdpsch(guid);
        log_info("Background-running CDP Schedule for disk %s is removed.", guid);
    }
    qel_save(g_client);
    log_info("Config file is updated for disk %s.", guid);
    return true;
}

// The caller holds both locks.
qel_backup_t *find_backup(const std::string &guid)
{
    log_info("Looking for disk %s in backup list.", guid.c_str());
    const auto found = std::find_if(g_inventory.backups.begin(), g_inventory.backups.end(),
                                    [&](const qel_backup_t &entry) { return entry.src_guid == guid; });
    return found == g_inventory.backups.end() ? nullptr : &*found;
}

void register_schedule(const qel_backup_t &backup, const cdp_times &times)
{
    const char *guid = backup.src_guid.c_str();
    const qel_cdpsch &schedule = qel_add_schedule(g_client, {.local_lun = backup.src_guid,
                                                             .mirror_lun = backup.dest_guid,
                                                             .cdp_con_start_time = times.con_start_time,
                                                             .cdp_start_time = times.start_time,
                                                             .cdp_timeout = times.timeout});
    qel_save(g_client);
    log_info("Config fie is updated for disk %s.", guid);
    _register_for_cdpsch(&schedule);
    log_info("Background-running CDP schedule for disk %s is registered.", guid);
}

// The first schedule of a protected disk. A group's snapshot takes these two locks the other way round, so
// neither is waited for here while the other is held.
int create_schedule(const schedule_request &wanted)
{
    const char *guid = wanted.source.c_str();
    log_info("Failed to find disk %s in existing schedule list.", guid);
    const std::scoped_lock held(g_inventory.lock, g_client->lock);
    qel_backup_t *backup = find_backup(wanted.source);
    if (!backup) {
        log_info("Failed to find disk %s in backup list.", guid);
        return -1;
    }
    log_new_times("disk", wanted);
    backup->start_time = wanted.times.con_start_time;
    backup->next_time = wanted.times.start_time;
    backup->interval = wanted.times.timeout;
    if (!wanted.times.are_set()) {
        log_info("No schedule is applied.");
        log_info("Failed to find disk %s in backup list.", guid);
        return -1;
    }
    register_schedule(*backup, wanted.times);
    return 0;
}

int schedule_disk(const schedule_request &wanted)
{
    log_info("Updating CDP schedule for disk %s.", wanted.source.c_str());
    return change_schedule(wanted) ? 0 : create_schedule(wanted);
}
} // namespace

int set_cdp_schedule(request *req)
{
    log_info("Recv cmd: SET_CDP_SCHEDULE");
    if (!req)
        return status_failure;
    if (!is_adopted())
        return status_not_adopted;
    schedule_request wanted;
    if (read_request(req->recv_xml.get(), wanted) < 0)
        return status_failure;
    const int result = wanted.is_group ? schedule_group(wanted) : schedule_disk(wanted);
    if (result < 0)
        return status_failure;
    log_info("Complete cmd SET_CDP_SCHEDULE.");
    return status_ok;
}
