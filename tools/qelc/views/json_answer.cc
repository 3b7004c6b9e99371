#include "tools/qelc/views/json_answer.h"

#include "tools/common/disks.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/views/groups.h"
#include "tools/qelc/views/mirrors.h"
#include "tools/qelc/views/schedules.h"

#include <nlohmann/json.hpp>

namespace {
void set_times(json_object &object, const snapshot_times &times)
{
    object["start"] = times.start;
    object["every"] = times.interval;
}

json_object schedule_object(const mirror_schedule &schedule)
{
    json_object object;
    set_times(object, schedule.times);
    object["next"] = next_snapshot(schedule.times);
    object["group"] = schedule.group.empty() ? json_object() : json_object(schedule.group);
    return object;
}

json_object disk_object(const disk_view &disk)
{
    json_object partitions = json_object::array();
    for (const partition_view &part : disk.partitions)
        partitions.push_back({{"name", part.name},
                              {"guid", part.guid},
                              {"size", part.size},
                              {"used", part.used},
                              {"file_system", part.file_system}});
    json_object object;
    object["name"] = disk.name;
    object["guid"] = disk.guid;
    object["size"] = disk.size;
    object["table"] = disk.table.empty() ? json_object() : json_object(disk.table);
    object["vendor"] = disk.vendor;
    object["system"] = disk.is_system;
    object["partitions"] = std::move(partitions);
    return object;
}

template <class value>
json_object value_or_null(const std::optional<value> &known)
{
    return known ? json_object(*known) : json_object();
}

void set_progress(json_object &object, const progress_view &progress)
{
    object["rate"] = value_or_null(progress.rate);
    object["seconds_left"] = value_or_null(progress.seconds_left);
    object["bytes_behind"] = value_or_null(progress.bytes_behind);
    object["pages_behind"] = value_or_null(pages_behind(progress));
    object["page_size"] = value_or_null(progress.page_size);
    object["level_ago"] = value_or_null(progress.level_ago);
    object["tracked"] = value_or_null(progress.is_tracked);
    object["untracked_reason"] = progress.reason.empty() ? json_object() : json_object(progress.reason);
}

json_object mirror_object(const mirror_view &mirror)
{
    json_object schedules = json_object::array();
    for (const mirror_schedule &schedule : mirror.schedules)
        schedules.push_back(schedule_object(schedule));
    json_object object;
    object["disk"] = mirror.disk;
    object["source"] = mirror.guids.source;
    object["mirror"] = mirror.guids.mirror;
    object["state"] = mirror_state_text(mirror);
    object["percent"] = mirror.percent;
    set_progress(object, mirror.progress);
    object["schedules"] = std::move(schedules);
    return object;
}

json_object group_object(const group_view &group)
{
    return {{"name", group.name}, {"disks", group.disks}};
}

// False if there are no ITEMS, because the answer holds no list of them.
template <class item>
bool add_list(const char *name, const std::optional<std::vector<item>> &items,
              json_object (*object_of)(const item &), json_object &object)
{
    if (!items)
        return false;
    json_object &list = object[name] = json_object::array();
    for (const item &one : *items)
        list.push_back(object_of(one));
    return true;
}
} // namespace

bool disks_json(const char *report, json_object &object)
{
    return add_list("disks", disks_of(report), disk_object, object);
}

bool mirrors_json(const char *report, json_object &object)
{
    return add_list("mirrors", mirrors_of(report), mirror_object, object);
}

bool groups_json(const char *answer, json_object &object)
{
    return add_list("groups", groups_of(answer), group_object, object);
}

bool schedule_json(const char *answer, json_object &object)
{
    const std::optional<snapshot_times> times = schedule_of(answer);
    if (times)
        set_times(object, *times);
    return times.has_value();
}

int print_json_answer(const request &reply, bool (*add)(const char *answer, json_object &object))
{
    const uint16_t status = reply.recv_head.ret;
    json_object object;
    object["status"] = status;
    object["meaning"] = meaning_of(status);
    const char *text = reply.recv_xml.get();
    if (status == status_ok && add && !add(text ? text : "", object))
        return fail_unreadable();
    puts(object.dump().c_str());
    return status == status_ok ? exit_ok : exit_refused;
}
