#include "tools/qelc/views/schedules.h"

#include "base/number.h"
#include "base/xml.h"
#include "tools/common/report_view.h"
#include "tools/common/text_table.h"
#include "tools/qelc/points_in_time.h"

std::optional<snapshot_times> schedule_of(const char *answer)
{
    const xml_doc doc = xml_parse_text(answer);
    const xmlNode *schedule = doc ? find_child(xml_root(doc), "Schedule") : nullptr;
    if (!schedule)
        return std::nullopt;
    return snapshot_times{scan_unsigned(report_value(schedule, "StartTime").c_str()),
                          scan_u32(report_value(schedule, "IntervalSeconds").c_str())};
}

// A schedule that lacks one of its times takes no snapshots, but it exists.
optional_text schedule_page(const char *answer)
{
    const std::optional<snapshot_times> times = schedule_of(answer);
    if (!times)
        return std::nullopt;
    if (times->start == 0 && times->interval == 0)
        return "no schedule\n";
    return align({{"Start", times->start == 0 ? "-" : local_time_text(times->start)},
                  {"Every", times->interval == 0 ? "-" : interval_text(times->interval)}});
}
