#include "tools/qelc/views/mirror_verdict.h"

#include "client/inventory_records.h"
#include "platform/linux/mirror/record.h"
#include "tools/qelc/health/missing_disk.h"
#include "tools/qelc/points_in_time.h"

#include <algorithm>

namespace {
// Why a mirror is down, as far as this host can see it: the library's record says where the mirror was.
std::string why_down(const host &at, const mirror_view &mirror)
{
    if (!at.is_local() || mirror.state != backup_destination_down)
        return "";
    const auto records = load_mirrors(bad_files::left_alone).value_or(std::vector<mirror_record>{});
    for (const mirror_record &one : records) {
        if (one.src_guid == mirror.guids.source && !one.dest_path.empty()) {
            const std::string why = why_missing(one.dest_path, mirror.guids.mirror);
            return why.empty() ? "" : ", " + why;
        }
    }
    return "";
}

std::string since_text(const mirror_view &mirror, const state_changes &changes)
{
    const auto found = changes.find(mirror.guids.source);
    const bool is_known = found != changes.end() && found->second.since != 0;
    return is_known ? " since " + clock_text(found->second.since) : "";
}

verb_item item_of(const host &at, const mirror_view &mirror, const state_changes &changes)
{
    verb_item item{"disk", mirror.disk, mirror.guids.source, exit_ok, "is level"};
    if (mirror.state != backup_synchronised)
        item.refuse(exit_refused, mirror_state_text(mirror) + since_text(mirror, changes) + ", " +
                                      std::to_string(mirror.percent) + " %" + why_down(at, mirror));
    return item;
}
} // namespace

void note_changes(state_changes &changes, const std::vector<mirror_view> &mirrors)
{
    for (const mirror_view &mirror : mirrors) {
        const auto [known, is_new] = changes.try_emplace(mirror.guids.source, state_change{mirror.state, 0});
        if (!is_new && known->second.state != mirror.state)
            known->second = {mirror.state, time(nullptr)};
    }
}

outcome verdict_of(const host &at, const std::vector<mirror_view> &mirrors,
                   const std::vector<mirror_view> &gone, const state_changes &changes)
{
    std::vector<verb_item> items;
    for (const mirror_view &mirror : mirrors)
        items.push_back(item_of(at, mirror, changes));
    for (const mirror_view &mirror : gone)
        items.push_back({"disk", mirror.disk, mirror.guids.source, exit_refused, "is no longer a mirror"});
    const auto worst = std::ranges::find_if(
        mirrors, [](const mirror_view &one) { return one.state != backup_synchronised; });
    outcome end = outcome_of(std::move(items), worst == mirrors.end() ? "" : way_to_level(*worst));
    end.headline = "not level";
    end.status = end.status == exit_ok ? exit_ok : exit_refused;
    if (end.items.empty())
        end.remark = "no mirrors";
    return end;
}
