#include "tools/qelc/points_in_time.h"
#include "tools/qelc/views/json_answer.h"
#include "tools/qelc/views/status.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace {
json_object time_or_null(uint64_t seconds)
{
    return seconds == 0 ? json_object() : json_object(utc_time_text(seconds));
}

json_object time_or_null(time_t seconds)
{
    return time_or_null(static_cast<uint64_t>(seconds));
}

json_object text_or_null(const std::string &text)
{
    return text.empty() ? json_object() : json_object(text);
}

json_object config_object(const config_remarks &config)
{
    return {{"usable", config.faults.empty()}, {"faults", config.faults}, {"hints", config.hints}};
}

json_object daemon_object(const host_health &seen)
{
    json_object object;
    object["answers"] = seen.answers;
    object["running"] = seen.is_local ? json_object(seen.process.has_value()) : json_object();
    object["since"] = seen.process ? time_or_null(seen.process->since) : json_object();
    object["memory"] =
        seen.process && seen.process->memory ? json_object(*seen.process->memory) : json_object();
    return object;
}

json_object manager_object(const host_health &seen)
{
    const time_t last = seen.heartbeat ? seen.heartbeat->last : 0;
    json_object object;
    object["guid"] = seen.manager->guid;
    object["addresses"] = text_or_null(seen.manager->addresses);
    object["last_heartbeat"] = time_or_null(last);
    object["heartbeat_age"] = last == 0 ? json_object() : json_object(std::max<time_t>(seen.time - last, 0));
    return object;
}

json_object mirror_health_object(const mirror_health &one, const health_limits &limits)
{
    const finding judged = judge_mirror(one, limits);
    json_object object = mirror_object(one.view);
    object["place"] = one.place;
    object["missing"] = text_or_null(one.missing);
    object["health"] = small_word_of(judged.how);
    return object;
}

json_object series_object(const snapshot_series &one)
{
    json_object object;
    object[one.is_group ? "group" : "disk"] = one.name;
    object["last"] = time_or_null(one.marks.taken_at);
    object["next"] = time_or_null(one.next());
    object["every"] = one.times.interval;
    object["kept"] = one.kept;
    object["failures"] = one.marks.failures;
    object["last_failure"] = time_or_null(one.marks.failed_at);
    object["why"] = text_or_null(one.marks.why);
    return object;
}

template <class item, class maker>
json_object list_or_null(const std::optional<std::vector<item>> &items, maker object_of)
{
    if (!items)
        return nullptr;
    json_object list = json_object::array();
    for (const item &one : *items)
        list.push_back(object_of(one));
    return list;
}

json_object finding_object(const finding &one)
{
    return {{"health", small_word_of(one.how)}, {"text", one.text}, {"hint", text_or_null(one.hint)}};
}
} // namespace

json_object status_object(const host_health &seen, const verdict &found, const health_limits &limits)
{
    json_object object;
    object["host"] = seen.name;
    object["health"] = small_word_of(found.how);
    object["text"] = found.text;
    object["time"] = time_or_null(seen.time);
    object["config"] = seen.config ? config_object(*seen.config) : json_object();
    object["daemon"] = daemon_object(seen);
    object["adopted"] = seen.is_adopted ? json_object(*seen.is_adopted) : json_object();
    object["manager"] = seen.manager ? manager_object(seen) : json_object();
    object["mirrors"] = list_or_null(
        seen.mirrors, [&](const mirror_health &one) { return mirror_health_object(one, limits); });
    object["snapshots"] = list_or_null(seen.snapshots, series_object);
    object["databases"] = seen.databases;
    object["findings"] = list_or_null(std::optional(found.findings), finding_object);
    return object;
}
