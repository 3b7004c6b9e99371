#include "tools/qelc/views/top_page.h"

#include "client/inventory_records.h"
#include "tools/common/human_text.h"
#include "tools/common/visible.h"
#include "tools/qelc/points_in_time.h"
#include "tools/qelc/views/status.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <utility>

namespace {
using line_list = std::vector<screen_line>;

std::vector<mirror_health> sorted_mirrors(const top_state &state)
{
    auto mirrors = state.seen.mirrors.value_or(std::vector<mirror_health>{});
    if (state.order == mirror_order::worst_first)
        sort_by_grade(mirrors, state.limits);
    else if (state.order == mirror_order::by_name)
        std::ranges::stable_sort(mirrors, {}, [](const mirror_health &one) { return one.view.disk; });
    else
        std::ranges::stable_sort(mirrors, std::ranges::greater{}, [](const mirror_health &one) {
            return one.view.progress.bytes_behind.value_or(0);
        });
    return mirrors;
}

size_t index_of_chosen(const top_state &state, const std::vector<mirror_health> &mirrors)
{
    const auto found = std::ranges::find(mirrors, state.chosen,
                                         [](const mirror_health &one) { return one.view.guids.source; });
    return found == mirrors.end() ? 0 : static_cast<size_t>(found - mirrors.begin());
}

const char *name_of(mirror_order order)
{
    constexpr const char *names[] = {"worst", "name", "behind"};
    return names[static_cast<size_t>(order)];
}

// --- Cells -------------------------------------------------------------------------------------------

std::string left(const std::string &text, size_t width)
{
    const std::string cut = cut_to_width(visible(text), width);
    return cut + std::string(width - shown_width(cut), ' ');
}

std::string right(const std::string &text, size_t width)
{
    const std::string cut = cut_to_width(visible(text), width);
    return std::string(width - shown_width(cut), ' ') + cut;
}

bool is_same_day(const tm &one, const tm &other)
{
    return one.tm_year == other.tm_year && one.tm_yday == other.tm_yday;
}

// The time of this day, the date of another one, "-" for none.
std::string short_time(time_t point, time_t now, bool is_exact = false)
{
    if (point == 0)
        return "-";
    tm that{}, today{};
    localtime_r(&point, &that);
    localtime_r(&now, &today);
    char time[16] = "", date[16] = "";
    strftime(time, sizeof time, is_exact && is_same_day(that, today) ? "%H:%M:%S" : "%H:%M", &that);
    strftime(date, sizeof date, "%m-%d", &that);
    if (is_same_day(that, today))
        return time;
    return is_exact ? std::string(date) + " " + time : date;
}

std::string bar(int percent, size_t width)
{
    char number[16];
    snprintf(number, sizeof number, " %3d %%", percent);
    const size_t inside = width - std::min(width, std::string_view(number).size() + 2);
    const size_t filled = inside * static_cast<size_t>(std::clamp(percent, 0, 100)) / 100;
    return "[" + std::string(filled, '#') + std::string(inside - filled, '.') + "]" + number;
}

std::string state_cell(const mirror_view &one, size_t width)
{
    const auto &level_ago = one.progress.level_ago;
    switch (one.state) {
    case backup_synchronised:
        return "level";
    case backup_not_synchronised:
        return "not copied";
    case backup_source_down:
        return "SOURCE DOWN";
    case backup_destination_down:
        return "MIRROR DOWN";
    case backup_recovering:
        return level_ago ? time_text(*level_ago) + " behind" : bar(one.percent, width);
    default:
        return bar(one.percent, width);
    }
}

// --- The table of mirrors ----------------------------------------------------------------------------

// Below 60 columns what is at the right is cut.
struct column_widths {
    size_t name, state, rate = 10, behind = 8, time = 5;
};

column_widths widths_for(const std::vector<mirror_health> &mirrors, size_t columns)
{
    constexpr size_t least_columns = 60, least_state = 13, most_state = 40,
                     others = 2 + 10 + 8 + 2 * 5 + 5 * 2;
    size_t name = 4;
    for (const mirror_health &one : mirrors)
        name = std::max(name, shown_width(visible(one.view.disk)));
    const size_t room = std::max(columns, least_columns) - others;
    name = std::min(name, room - least_state);
    return {.name = name, .state = std::min(room - name, most_state)};
}

std::string row_of(const column_widths &widths, const std::vector<std::string> &cells)
{
    return "  " + left(cells[0], widths.name) + "  " + left(cells[1], widths.state) + "  " +
           right(cells[2], widths.rate) + "  " + right(cells[3], widths.behind) + "  " +
           right(cells[4], widths.time) + "  " + right(cells[5], widths.time);
}

// The snapshots of a mirror: its own, and those of its groups.
std::pair<time_t, time_t> snapshot_times_of(const top_state &state, const mirror_view &mirror)
{
    std::pair<time_t, time_t> times{0, 0};
    for (const snapshot_series &one : state.seen.snapshots.value_or(std::vector<snapshot_series>{})) {
        const bool is_its = one.is_group
                                ? std::ranges::count(mirror.schedules, one.name, &mirror_schedule::group) > 0
                                : one.name == mirror.disk;
        if (is_its)
            times.first = std::max(times.first, one.marks.taken_at);
    }
    for (const mirror_schedule &one : mirror.schedules) {
        const auto next = static_cast<time_t>(next_snapshot(one.times));
        times.second = times.second == 0 ? next : std::min(times.second, next);
    }
    return times;
}

screen_line mirror_line(const top_state &state, const mirror_health &one, const column_widths &widths)
{
    const progress_view &progress = one.view.progress;
    const auto [last, next] = snapshot_times_of(state, one.view);
    return {row_of(widths, {one.view.disk, state_cell(one.view, widths.state),
                            progress.rate ? size_text(*progress.rate) + "/s" : "-",
                            progress.bytes_behind ? size_text(*progress.bytes_behind) : "-",
                            short_time(last, state.seen.time), short_time(next, state.seen.time)}),
            line_kind::plain, judge_mirror(one, state.limits).how};
}

// So many of the lines that the chosen one is among them.
void add_mirrors(line_list &lines, const top_state &state, size_t room, size_t columns)
{
    const auto mirrors = sorted_mirrors(state);
    const column_widths widths = widths_for(mirrors, columns);
    lines.push_back(
        {row_of(widths, {"Disk", "Mirror", "Rate", "Behind", "Last", "Next"}), line_kind::heading});
    const size_t chosen = index_of_chosen(state, mirrors);
    const size_t first = chosen < room ? 0 : chosen - room + 1;
    for (size_t i = first; i < mirrors.size() && i < first + room; ++i) {
        lines.push_back(mirror_line(state, mirrors[i], widths));
        if (i == chosen)
            lines.back().kind = line_kind::chosen;
    }
    if (mirrors.empty())
        lines.push_back({"  no mirrors"});
}

// --- The other parts ---------------------------------------------------------------------------------

void add_changes(line_list &lines, const top_state &state, size_t room)
{
    const size_t count = std::min(room, state.changes.size());
    for (size_t i = state.changes.size(); i > state.changes.size() - count; --i) {
        const host_change &one = state.changes[i - 1];
        lines.push_back({"  " + short_time(one.time, state.seen.time, true) + "  " + text_of(one)});
    }
    if (count == 0 && room > 0)
        lines.push_back({"  none yet"});
}

std::string schedule_text(const mirror_schedule &one)
{
    return "every " + interval_text(one.times.interval) + ", next " +
           local_time_text(next_snapshot(one.times)) + (one.group.empty() ? "" : ", group " + one.group);
}

// What is too long goes on in the next line, at a blank where there is one.
void add_fact(line_list &lines, size_t columns, const char *what, const std::string &text)
{
    constexpr size_t begin = 13, least = 10;
    const size_t room = std::max(columns, begin + least) - begin;
    std::string rest = visible(text), title = what;
    while (!rest.empty()) {
        std::string part = cut_to_width(rest, room);
        const size_t blank = part.size() < rest.size() ? part.rfind(' ') : std::string::npos;
        part.resize(std::min(part.size(), blank));
        rest.erase(0, part.size() + (blank != std::string::npos ? 1 : 0));
        lines.push_back({"  " + left(std::exchange(title, ""), begin - 4) + "  " + part});
        if (part.empty())
            break;
    }
}

// One mirror whole.
void add_one(line_list &lines, const top_state &state, const mirror_health &one, size_t columns)
{
    const auto add = [&](const char *what, const std::string &text) { add_fact(lines, columns, what, text); };
    const progress_view &progress = one.view.progress;
    const finding judged = judge_mirror(one, state.limits);
    lines.push_back({"  " + one.view.disk + " -> " + one.place, line_kind::heading});
    add("state", mirror_words(one));
    add("level", progress.level_ago ? level_text(progress) : "");
    add("disk", one.view.guids.source);
    add("mirror", one.view.guids.mirror);
    add("tracked", !progress.is_tracked ? "" : *progress.is_tracked ? "yes" : "no");
    const auto [last, next] = snapshot_times_of(state, one.view);
    add("snapshot", last == 0 ? "" : "last " + local_time_text(static_cast<uint64_t>(last)));
    for (const mirror_schedule &schedule : one.view.schedules)
        add("schedule", schedule_text(schedule));
    add("to do", judged.how == grade::ok ? "" : judged.hint);
}

void add_whole_page(line_list &lines, const top_state &state, size_t rows, size_t columns)
{
    constexpr size_t frame = 4; // title, two headings, keys
    const size_t room = rows - std::min(rows, frame);
    const size_t count = state.seen.mirrors ? state.seen.mirrors->size() : 0;
    const size_t of_changes = std::min(std::clamp<size_t>(state.changes.size(), 1, 3), room / 2);
    const size_t of_mirrors = std::max<size_t>(1, std::min(count, room - of_changes));
    add_mirrors(lines, state, of_mirrors, columns);
    lines.push_back({"  Last events", line_kind::heading});
    add_changes(lines, state, room - std::min(room, of_mirrors));
}
} // namespace

std::vector<screen_line> top_lines(const top_state &state, size_t rows, size_t columns)
{
    const verdict found = judge(state.seen, state.limits);
    line_list lines{{status_line(state.seen, found), line_kind::title, found.how}};
    const auto mirrors = sorted_mirrors(state);
    const bool is_one = state.is_one_shown && !mirrors.empty();
    if (is_one)
        add_one(lines, state, mirrors[index_of_chosen(state, mirrors)], columns);
    else
        add_whole_page(lines, state, rows, columns);
    lines.resize(rows - std::min<size_t>(rows, 1));
    lines.push_back(
        {is_one ? "  q quit  enter all mirrors"
                : std::string("  q quit  s sort (") + name_of(state.order) + ")  arrows  enter one mirror"});
    for (screen_line &line : lines)
        line.text = left(line.text, columns);
    return lines;
}

void choose(top_state &state, int distance)
{
    const auto mirrors = sorted_mirrors(state);
    if (mirrors.empty())
        return;
    const auto index = static_cast<int>(index_of_chosen(state, mirrors)) + distance;
    const int last = static_cast<int>(mirrors.size()) - 1;
    state.chosen = mirrors[static_cast<size_t>(std::clamp(index, 0, last))].view.guids.source;
}

void sort_next_way(top_state &state)
{
    constexpr int ways = 3;
    state.order = static_cast<mirror_order>((static_cast<int>(state.order) + 1) % ways);
}
