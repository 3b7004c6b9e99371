#include "tools/json_answer.h"

#include "tools/disks.h"
#include "tools/groups.h"
#include "tools/mirrors.h"
#include "tools/qelc_ask.h"
#include "tools/schedules.h"

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
    object["schedules"] = std::move(schedules);
    return object;
}
} // namespace

bool disks_json(const char *report, json_object &object)
{
    const auto disks = disks_of(report);
    if (!disks)
        return false;
    json_object &list = object["disks"] = json_object::array();
    for (const disk_view &disk : *disks)
        list.push_back(disk_object(disk));
    return true;
}

bool mirrors_json(const char *report, json_object &object)
{
    const auto mirrors = mirrors_of(report);
    if (!mirrors)
        return false;
    json_object &list = object["mirrors"] = json_object::array();
    for (const mirror_view &mirror : *mirrors)
        list.push_back(mirror_object(mirror));
    return true;
}

bool groups_json(const char *answer, json_object &object)
{
    const auto groups = groups_of(answer);
    if (!groups)
        return false;
    json_object &list = object["groups"] = json_object::array();
    for (const group_view &group : *groups)
        list.push_back({{"name", group.name}, {"disks", group.disks}});
    return true;
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
