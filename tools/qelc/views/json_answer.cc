#include "tools/qelc/views/json_answer.h"

#include "tools/qelc/points_in_time.h"
#include "tools/qelc/views/groups.h"
#include "tools/qelc/views/schedules.h"

#include <nlohmann/json.hpp>

namespace {
json_object time_or_null(uint64_t seconds)
{
    return seconds == 0 ? json_object() : json_object(utc_time_text(seconds));
}

void set_times(json_object &object, const snapshot_times &times)
{
    object["start"] = time_or_null(times.start);
    object["every"] = times.interval;
}

json_object schedule_object(const mirror_schedule &schedule)
{
    json_object object;
    set_times(object, schedule.times);
    object["next"] = time_or_null(next_snapshot(schedule.times));
    object["group"] = schedule.group.empty() ? json_object() : json_object(schedule.group);
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

json_object group_object(const group_view &group)
{
    return {{"name", group.name}, {"disks", group.disks}};
}

// False if there are no ITEMS, because the answer holds no list of them.
template <class item>
bool list_all(const std::optional<std::vector<item>> &items, json_object (*object_of)(const item &),
              json_object &results)
{
    if (!items)
        return false;
    results = json_object::array();
    for (const item &one : *items)
        results.push_back(object_of(one));
    return true;
}
} // namespace

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

bool mirrors_json(const char *report, json_object &results)
{
    return list_all(mirrors_of(report), mirror_object, results);
}

bool groups_json(const char *answer, json_object &results)
{
    return list_all(groups_of(answer), group_object, results);
}

bool schedule_json(const char *answer, json_object &results)
{
    const std::optional<snapshot_times> times = schedule_of(answer);
    if (!times)
        return false;
    json_object object;
    set_times(object, *times);
    results = json_object::array();
    results.push_back(std::move(object));
    return true;
}
