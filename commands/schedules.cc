#include "commands/schedules.h"

#include "base/clock.h"
#include "base/log.h"
#include "client/client.h"
#include "client/inventory.h"
#include "commands/frame.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/schedules.h"

namespace {
// What differs between the manager's command and the agent's. The agent's element has another name, but the
// same log lines.
struct set_command {
    command_frame frame;
    const char *element;
    int unreadable;      // status
    const char *created; // logged at the end for a disk that had no schedule
};

constexpr set_command manager_command = {.frame = {.received = "Recv cmd: SET_CDP_SCHEDULE"},
                                         .element = "Backup",
                                         .unreadable = status_failure,
                                         .created = "Complete cmd SET_CDP_SCHEDULE."};
constexpr set_command agent_command = {.frame = agent_frame("Recv cmd:KAV_SET_CDP_SCHEDULE"),
                                       .element = "Snap",
                                       .unreadable = status_unreadable_request,
                                       .created = "Complete work: SET_CDP_SCHEDULE."};

enum class outcome { failed, changed, created };

// What the request asks for, its start moved on to the next slot if it has passed.
struct new_schedule {
    bool is_group = false;
    std::string source; // the group's name, or the disk's GUID
    cdp_times times;
};

void log_new_times(const char *kind, const new_schedule &wanted)
{
    log_info("New schedule for %s %s, console start time: %lu, start time: %lu, interval: %u.", kind,
             wanted.source.c_str(), wanted.times.con_start_time, wanted.times.start_time,
             wanted.times.timeout);
}

// --- Groups ------------------------------------------------------------------------------------------------

// If only one of start and interval is set, the running job is left alone.
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

outcome schedule_group(const new_schedule &wanted)
{
    const char *name = wanted.source.c_str();
    log_info("Updaing CDP schedule for group %s.", name);
    const std::lock_guard held(g_client->lock);
    log_info("Cou cou ! I'm here.");
    qel_group *group = qel_find_group(g_client, wanted.source);
    if (!group) {
        log_info("Failed to find group.");
        return outcome::failed;
    }
    log_new_times("group", wanted);
    qel_set_times(g_client, *group, wanted.times);
    apply_to_job(*group, wanted.times);
    qel_save(g_client);
    log_info("Config file is updated for group %s.", name);
    return outcome::changed;
}

// --- Single disks ------------------------------------------------------------------------------------------

// False if the disk has no schedule yet.
bool change_schedule(const new_schedule &wanted)
{
    const char *guid = wanted.source.c_str();
    const std::lock_guard held(g_client->lock);
    log_info("Looking for disk %s in existing schedule list.", guid);
    qel_cdpsch *schedule = qel_find_schedule(g_client, wanted.source);
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

void register_schedule(const qel_backup_t &backup, const cdp_times &times)
{
    const char *guid = backup.src_guid.c_str();
    const qel_cdpsch &schedule = qel_add_schedule(g_client, {{.local_lun = backup.src_guid,
                                                              .mirror_lun = backup.dest_guid,
                                                              .cdp_con_start_time = times.con_start_time,
                                                              .cdp_start_time = times.start_time,
                                                              .cdp_timeout = times.timeout}});
    qel_save(g_client);
    log_info("Config fie is updated for disk %s.", guid);
    _register_for_cdpsch(&schedule);
    log_info("Background-running CDP schedule for disk %s is registered.", guid);
}

// The first schedule of a protected disk. scoped_lock takes both locks without waiting for one while holding
// the other, see docs/architecture.md.
outcome create_schedule(const new_schedule &wanted)
{
    const char *guid = wanted.source.c_str();
    log_info("Failed to find disk %s in existing schedule list.", guid);
    const std::scoped_lock held(g_inventory.lock, g_client->lock);
    log_info("Looking for disk %s in backup list.", guid);
    qel_backup_t *backup = qel_find_backup(wanted.source);
    if (!backup) {
        log_info("Failed to find disk %s in backup list.", guid);
        return outcome::failed;
    }
    log_new_times("disk", wanted);
    backup->start_time = wanted.times.con_start_time;
    backup->next_time = wanted.times.start_time;
    backup->interval = wanted.times.timeout;
    if (!wanted.times.are_set()) {
        log_info("No schedule is applied.");
        log_info("Failed to find disk %s in backup list.", guid);
        return outcome::failed;
    }
    register_schedule(*backup, wanted.times);
    return outcome::created;
}

outcome schedule_disk(const new_schedule &wanted)
{
    log_info("Updating CDP schedule for disk %s.", wanted.source.c_str());
    return change_schedule(wanted) ? outcome::changed : create_schedule(wanted);
}

int set_schedule(const set_command &command, const request *req)
{
    const int status = enter_command(command.frame, req);
    if (status != status_ok)
        return status;
    schedule_request asked;
    if (xml_to_schedule(req->recv_xml.get(), command.element, &asked) < 0)
        return command.unreadable;
    const new_schedule wanted = {asked.is_group, asked.source,
                                 cdp_times_from(asked.start_time, asked.interval, clock_wall())};
    const outcome result = wanted.is_group ? schedule_group(wanted) : schedule_disk(wanted);
    if (result == outcome::failed)
        return status_failure;
    log_info("%s", result == outcome::created ? command.created : "Complete cmd SET_CDP_SCHEDULE.");
    return status_ok;
}
} // namespace

int set_cdp_schedule(request *req)
{
    return set_schedule(manager_command, req);
}

int kav_set_cdp_schedule(request *req)
{
    return set_schedule(agent_command, req);
}
