#include "tools/qelc/views/change_line.h"

#include "tools/qelc/points_in_time.h"

#include <nlohmann/json.hpp>

namespace {
std::string line_of(const json_object &object)
{
    return object.dump(-1, ' ', false, json_object::error_handler_t::replace) + "\n";
}

json_object object_at(time_t time, const char *about)
{
    return {{"time", utc_time_text(static_cast<uint64_t>(time))}, {"event", about}};
}
} // namespace

std::string change_line(const host_change &change)
{
    json_object object = object_at(change.time, change.about);
    const std::pair<const char *, const std::string &> fields[] = {
        {"name", change.name}, {"guid", change.guid}, {"snapshot", change.snapshot},
        {"now", change.now},   {"was", change.was},   {"reason", change.reason},
    };
    for (const auto &[key, text] : fields) {
        if (!text.empty())
            object[key] = text;
    }
    return line_of(object);
}

std::string begin_line(const host_health &seen)
{
    json_object object = object_at(seen.time, "begin");
    object["host"] = seen.name;
    object["daemon"] = seen.answers ? "up" : "down";
    object["adopted"] = seen.is_adopted ? json_object(*seen.is_adopted) : json_object();
    object["mirrors"] = json_object::array();
    for (const mirror_health &one : seen.mirrors.value_or(std::vector<mirror_health>{}))
        object["mirrors"].push_back(
            {{"name", one.view.disk}, {"guid", one.view.guids.source}, {"now", mirror_state_text(one.view)}});
    return line_of(object);
}
