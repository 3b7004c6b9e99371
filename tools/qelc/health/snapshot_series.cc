#include "tools/qelc/health/snapshot_series.h"

#include <algorithm>

namespace {
using series_by_key = std::map<mark_key, snapshot_series>;

snapshot_series &series_at(series_by_key &all, const mark_key &key)
{
    snapshot_series &one = all[key];
    one.is_group = !key.first.empty();
    if (one.name.empty())
        one.name = one.is_group ? key.first : key.second;
    return one;
}

void add_schedules(series_by_key &all, const mirror_view &mirror)
{
    for (const mirror_schedule &schedule : mirror.schedules) {
        const mark_key key{schedule.group, schedule.group.empty() ? mirror.guids.mirror : ""};
        series_at(all, key).times = schedule.times;
    }
}

time_t time_of(const snapshot &one)
{
    tm fields{};
    return strptime(one.time.c_str(), "%Y-%m-%dT%H:%M:%SZ", &fields) ? timegm(&fields) : 0;
}

// The journal may have been taken away since, but the snapshot is there.
void add_kept(series_by_key &all, const snapshot &one)
{
    if (!one.is_complete || one.members.empty())
        return;
    snapshot_series &series =
        series_at(all, {one.group, one.group.empty() ? one.members.front().mirror : ""});
    ++series.kept;
    series.keeper = one.members.front().keeper; // the last one comes last
    series.marks.taken_at = std::max(series.marks.taken_at, time_of(one));
}
} // namespace

void add_mark(marks_by_key &all, const journal_mark &mark)
{
    mark_sums &sums = all[{mark.group, mark.mirror}];
    if (mark.is_taken) {
        sums.taken_at = mark.time;
        return;
    }
    ++sums.failures;
    sums.failed_at = mark.time;
    sums.why = mark.text;
}

std::vector<snapshot_series> series_of(const std::vector<mirror_view> &mirrors, const marks_by_key &marks,
                                       const std::vector<snapshot> &kept)
{
    series_by_key all;
    for (const mirror_view &mirror : mirrors)
        add_schedules(all, mirror);
    for (const auto &[key, sums] : marks)
        series_at(all, key).marks = sums;
    for (const snapshot &one : kept)
        add_kept(all, one);
    for (const mirror_view &mirror : mirrors) {
        if (const auto found = all.find({"", mirror.guids.mirror}); found != all.end())
            found->second.name = mirror.disk;
    }
    std::vector<snapshot_series> list;
    for (auto &[key, series] : all)
        list.push_back(std::move(series));
    return list;
}

std::string title_of(const snapshot_series &one)
{
    return (one.is_group ? "group " : "") + one.name;
}
