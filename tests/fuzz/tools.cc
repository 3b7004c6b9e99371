// What the tools read: a daemon's answers, as tables and as JSON, a heartbeat's report, and a control file.
#include "tests/fuzz/fuzz.h"
#include "tools/common/disks.h"
#include "tools/common/exchange.h"
#include "tools/common/report_view.h"
#include "tools/common/visible.h"
#include "tools/manager/options.h"
#include "tools/qelc/health/mark_journal.h"
#include "tools/qelc/points_in_time.h"
#include "tools/qelc/views/disks.h"
#include "tools/qelc/views/groups.h"
#include "tools/qelc/views/json_answer.h"
#include "tools/qelc/views/mirrors.h"
#include "tools/qelc/views/schedules.h"

#include <cstdlib>
#include <nlohmann/json.hpp>

namespace {
void require_page(const optional_text &page)
{
    require(!page || page->ends_with('\n'), "a page is whole lines");
    require(!page || visible(*page, line_ends::kept) == *page, "a terminal obeys nothing of a page");
}

template <optional_text (*View)(const char *), bool (*Json)(const char *, json_object &)>
void read_answer(const char *text)
{
    const optional_text page = View(text);
    require_page(page);
    json_object object;
    require(Json(text, object) == page.has_value(), "a table and JSON have the same answers");
    require(json_object::parse(object.dump()) == object, "JSON is read back");
}

optional_text disks_of_answer(const char *text)
{
    const auto disks = disks_of(text);
    return disks ? optional_text(disks_page(*disks, {})) : std::nullopt;
}

bool disks_json(const char *text, json_object &results)
{
    const auto disks = disks_of(text);
    if (disks)
        results = disk_records(*disks, {});
    return disks.has_value();
}

void read_report(const char *text)
{
    require(visible(report_line(text)) == report_line(text), "a report has one line that no terminal obeys");
    require_page(report_page(text));
}

void read_point_in_time(const char *text)
{
    constexpr uint64_t last = 253402300799; // of the years that have four digits
    const auto point = parse_point_in_time(text);
    if (point && *point <= last)
        require(parse_point_in_time(local_time_text(*point)) == point, "a point in time is read back");
}

void read_endpoint(const char *text)
{
    if (const auto peer = parse_endpoint(text, 1))
        require(!peer->host.empty() && peer->port != 0, "an endpoint is whole");
}

void read_mark(const char *text)
{
    if (const auto mark = parse_mark(text))
        require(mark->time != 0 && mark->group.empty() != mark->mirror.empty(), "a mark is whole");
}

void read_control_file(const char *text)
{
    static const memory_file file;
    file.set(text);
    treatment treat{.answer = 7, .chance = 7};
    std::string error;
    if (apply_control_file(file.path(), treat, error))
        require(treat.chance <= 100, "a chance is in percent");
    else
        require(!error.empty() && treat.answer == 7 && treat.chance == 7, "a wrong file changes nothing");
}

constexpr void (*readers[])(const char *) = {read_answer<disks_of_answer, disks_json>,
                                             read_answer<mirrors_page, mirrors_json>,
                                             read_answer<groups_page, groups_json>,
                                             read_answer<schedule_page, schedule_json>,
                                             read_report,
                                             read_point_in_time,
                                             read_endpoint,
                                             read_control_file,
                                             read_mark};
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready = (init_tool(), setenv("TZ", "UTC", 1), true);
    static_cast<void>(is_ready);
    const fuzz_input input(data, size, std::size(readers));
    readers[input.choice](input.bytes.c_str());
    return 0;
}
