#include "tools/qelc/views/mirrors.h"

#include "base/number.h"
#include "client/cdp_times.h"
#include "client/inventory.h"
#include "tools/common/human_text.h"
#include "tools/common/report_view.h"
#include "tools/common/text_table.h"
#include "tools/common/visible.h"
#include "tools/qelc/points_in_time.h"
#include "tools/qelc/views/short_guid.h"

#include <ctime>

namespace {
void add_schedule(mirror_view &mirror, const std::string &start, const std::string &interval,
                  const std::string &group)
{
    const snapshot_times times{scan_unsigned(start.c_str()), scan_u32(interval.c_str())};
    if (times.start != 0 && times.interval != 0)
        mirror.schedules.push_back({times, group});
}

bool is_member(const xmlNode *group, const std::string &guid)
{
    for (const xmlNode *disk : xml_children{group}) {
        if (xml_attribute(disk, "GUID") == guid)
            return true;
    }
    return false;
}

void add_group_schedules(mirror_view &mirror, const xmlNode *groups)
{
    for (const xmlNode *group : xml_children{groups}) {
        if (is_member(group, mirror.guids.source))
            add_schedule(mirror, report_value(group, "StartTimestamp"), report_value(group, "IntervalTime"),
                         report_value(group, "GroupName"));
    }
}

mirror_view read_mirror(const xmlNode *backup, const xmlNode *groups)
{
    mirror_view mirror{
        .disk = report_value(backup, "SrcName"),
        .guids = {report_value(backup, "SrcGUID"), unwrap_guid(report_value(backup, "DestGUID"))},
        .state = scan_u32(report_value(backup, "State").c_str()),
        .percent = scan_int(report_value(backup, "Percent").c_str())};
    if (mirror.disk.empty())
        mirror.disk = mirror.guids.source;
    mirror.progress = progress_of(mirror.guids, mirror.state == backup_synchronised);
    add_schedule(mirror, report_value(backup, "StartTime"), report_value(backup, "IntervalSeconds"), "");
    add_group_schedules(mirror, groups);
    return mirror;
}

std::vector<std::string> progress_row(const mirror_view &mirror)
{
    const progress_view &progress = mirror.progress;
    return {mirror.disk,
            mirror_state_text(mirror),
            std::to_string(mirror.percent) + " %",
            progress.rate ? size_text(*progress.rate) + "/s" : "-",
            progress.seconds_left ? time_text(*progress.seconds_left) : "-",
            progress.bytes_behind ? size_text(*progress.bytes_behind) : "-",
            level_text(progress),
            !progress.is_tracked   ? "-"
            : *progress.is_tracked ? "yes"
                                   : "no"};
}

// The second GUID stands below the first one, so that a line fits on a terminal.
void add_rows(text_table &rows, const mirror_view &mirror, const mirror_pair &shown)
{
    const size_t first = rows.size();
    rows.push_back({mirror.disk, shown.source});
    rows.push_back({"", shown.mirror});
    for (const mirror_schedule &schedule : mirror.schedules) {
        const size_t place = first + static_cast<size_t>(&schedule - mirror.schedules.data());
        auto &row = place < rows.size() ? rows[place] : rows.emplace_back(2);
        row.push_back(local_time_text(next_snapshot(schedule.times)));
        row.push_back(interval_text(schedule.times.interval));
        row.push_back(schedule.group);
    }
}

// As short as they can be told apart, on a terminal.
mirror_pair shown_guids(const mirror_pair &guids, const std::vector<mirror_view> &mirrors)
{
    if (!are_tables_cut())
        return guids;
    std::vector<std::string> all;
    for (const mirror_view &one : mirrors)
        all.insert(all.end(), {one.guids.source, one.guids.mirror});
    return {short_guid(guids.source, all), short_guid(guids.mirror, all)};
}

std::string untracked_lines(const std::vector<mirror_view> &mirrors)
{
    std::string lines;
    for (const mirror_view &mirror : mirrors) {
        if (!mirror.progress.reason.empty())
            lines += "  " + visible(mirror.disk + " is not tracked: " + mirror.progress.reason) + "\n";
    }
    return lines;
}
} // namespace

std::optional<std::vector<mirror_view>> mirrors_of(const char *report)
{
    const xml_doc doc = xml_parse_text(report);
    const xmlNode *client = report_client(doc);
    if (!client)
        return std::nullopt;
    std::vector<mirror_view> mirrors;
    for (const xmlNode *backup : xml_children{find_child(client, "BackupList")}) {
        if (xml_is_named(backup, "Backup"))
            mirrors.push_back(read_mirror(backup, find_child(client, "GroupList")));
    }
    return mirrors;
}

std::string mirror_state_text(const mirror_view &mirror)
{
    switch (mirror.state) {
    case backup_synchronised:
        return "synchronised";
    case backup_not_synchronised:
        return "not synchronised";
    case backup_synchronising:
        return "synchronising";
    case backup_recovering:
        return "recovering";
    case backup_source_down:
        return "source down";
    case backup_destination_down:
        return "mirror down";
    default:
        return "state " + std::to_string(mirror.state);
    }
}

std::string way_to_level(const mirror_view &mirror)
{
    switch (mirror.state) {
    case backup_not_synchronised:
        return "to copy the disk to its mirror: qelc resync " + mirror.disk;
    case backup_source_down:
        return "the disk has to come back; it goes on by itself then";
    case backup_destination_down:
        return "the mirror has to come back; it goes on by itself then. For another one: qelc unprotect " +
               mirror.disk;
    default:
        return "to wait until it is level: qelc mirrors --wait " + mirror.disk;
    }
}

bool is_synchronising(const mirror_view &mirror)
{
    return mirror.state == backup_synchronising || mirror.state == backup_recovering;
}

// The report has the start that the console set; the daemon computes the next run from it in the same way.
uint64_t next_snapshot(const snapshot_times &times)
{
    return cdp_times_from(times.start, times.interval, time(nullptr)).start_time;
}

optional_text mirrors_page(const char *report)
{
    const auto mirrors = mirrors_of(report);
    if (!mirrors)
        return std::nullopt;
    if (mirrors->empty())
        return "no mirrors\n";
    text_table progress{{"Disk", "State", "Done", "Rate", "Left", "Behind", "Level", "Tracked"}};
    text_table identities{{"Disk", "Source, then mirror", "Next snapshot", "Every", "Group"}};
    for (const mirror_view &mirror : *mirrors) {
        progress.push_back(progress_row(mirror));
        add_rows(identities, mirror, shown_guids(mirror.guids, *mirrors));
    }
    return align(progress) + untracked_lines(*mirrors) + "\n" + align(identities);
}
