#include "tools/qelc/health/mirror_health.h"

#include "client/inventory_records.h"
#include "platform/linux/state/progress.h"
#include "tools/qelc/health/missing_disk.h"

#include <algorithm>

namespace {
bool is_about(const mirror_record &record, const mirror_pair &guids)
{
    return record.src_guid == guids.source && record.dest_guid == guids.mirror;
}

std::vector<mirror_record>::const_iterator find_record(const std::vector<mirror_record> &records,
                                                       const mirror_pair &guids)
{
    return std::ranges::find_if(records, [&](const mirror_record &one) { return is_about(one, guids); });
}

std::string last_word(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

// The record says where both disks were last.
std::string why_down(uint32_t state, const mirror_record &record)
{
    if (state == backup_destination_down && !record.dest_path.empty())
        return why_missing(record.dest_path, record.dest_guid);
    if (state == backup_source_down && !record.src_path.empty())
        return why_missing(record.src_path, record.src_guid);
    return "";
}

// As the daemon would call it. A record stays level while a write has not been looked at yet.
uint32_t state_of(const mirror_record &record, const std::optional<mirror_progress> &told)
{
    if (!record.src_is_up)
        return backup_source_down;
    if (!record.dest_is_up)
        return backup_destination_down;
    switch (record.state) {
    case sync_state::copying:
        return backup_synchronising;
    case sync_state::recovering:
        return backup_recovering;
    case sync_state::level:
        return told && told->is_level ? backup_synchronised : backup_recovering;
    default:
        return backup_not_synchronised;
    }
}
} // namespace

mirror_health health_of(const mirror_view &view, const std::vector<mirror_record> &records)
{
    const auto record = find_record(records, view.guids);
    if (record == records.end())
        return {view, view.guids.mirror, ""};
    return {view, record->dest_path.empty() ? view.guids.mirror : last_word(record->dest_path),
            why_down(view.state, *record)};
}

bool are_same_mirrors(const std::vector<mirror_health> &mirrors, const std::vector<mirror_record> &records)
{
    return mirrors.size() == records.size() && std::ranges::all_of(mirrors, [&](const mirror_health &one) {
               return find_record(records, one.view.guids) != records.end();
           });
}

const mirror_record &record_of(const mirror_health &one, const std::vector<mirror_record> &records)
{
    return *find_record(records, one.view.guids);
}

mirror_health seen_again(const mirror_health &former, const mirror_record &record)
{
    mirror_health seen = former;
    const auto told = read_progress(record.src_guid);
    seen.view.state = state_of(record, told);
    const bool is_level = seen.view.state == backup_synchronised;
    seen.view.percent = is_level ? 100 : static_cast<int>(percent_of(record, record.position));
    seen.view.progress = progress_of(seen.view.guids, is_level);
    if (seen.view.state != former.view.state)
        seen.missing = why_down(seen.view.state, record);
    return seen;
}
