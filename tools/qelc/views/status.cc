#include "tools/qelc/views/status.h"

#include "client/inventory_records.h"
#include "config/config.h"
#include "tools/common/human_text.h"
#include "tools/common/text_table.h"
#include "tools/common/visible.h"
#include "tools/qelc/points_in_time.h"

#include <algorithm>

namespace {
const std::vector<mirror_health> &mirrors_of(const host_health &seen)
{
    static const std::vector<mirror_health> none;
    return seen.mirrors ? *seen.mirrors : none;
}

std::string counted(size_t count, const char *what)
{
    return std::to_string(count) + " " + what;
}

// --- The lines ---------------------------------------------------------------------------------------

std::string config_text(const config_remarks &config)
{
    if (!config.faults.empty())
        return config.faults.front();
    return std::string(config_path) +
           (config.hints.empty() ? ", usable" : ", usable; " + config.hints.front());
}

std::string daemon_text(const host_health &seen)
{
    if (!seen.process)
        return "does not run";
    std::string text = seen.process->since == 0
                           ? "running"
                           : "running since " + local_time_text(static_cast<uint64_t>(seen.process->since));
    if (!seen.answers && !seen.is_barred)
        text += ", does not answer";
    if (seen.process->memory)
        text += ", " + size_text(*seen.process->memory);
    const auto &mirrors = mirrors_of(seen);
    const bool are_tracked = std::ranges::all_of(
        mirrors, [](const mirror_health &one) { return one.view.progress.is_tracked == true; });
    return text + (!mirrors.empty() && are_tracked ? ", tracking by BPF" : "");
}

std::string heartbeat_text(const host_health &seen)
{
    if (!seen.heartbeat)
        return "last heartbeat not known here";
    if (seen.heartbeat->last == 0)
        return "no heartbeat yet";
    const time_t age = std::max<time_t>(seen.time - seen.heartbeat->last, 0);
    return "last heartbeat " + time_text(static_cast<uint64_t>(age)) + " ago";
}

std::string manager_text(const host_health &seen)
{
    if (seen.is_adopted == false)
        return "none has adopted this host";
    if (!seen.manager || seen.manager->addresses.empty())
        return "";
    return seen.manager->addresses + ", " + heartbeat_text(seen);
}

bool is_down(const mirror_health &one)
{
    return one.view.state == backup_source_down || one.view.state == backup_destination_down;
}

// "3: 2 level, 1 down".
std::string mirrors_text(const host_health &seen)
{
    if (!seen.mirrors) {
        const bool are_known = seen.recorded_mirrors && *seen.recorded_mirrors > 0;
        const char *what = seen.process ? ", nothing is known of them now" : ", which nobody follows now";
        return are_known ? std::to_string(*seen.recorded_mirrors) + what : "";
    }
    const auto &mirrors = *seen.mirrors;
    if (mirrors.empty())
        return "none";
    const auto count = [&](auto is_counted) {
        return static_cast<size_t>(std::ranges::count_if(mirrors, is_counted));
    };
    const size_t level =
        count([](const mirror_health &one) { return one.view.state == backup_synchronised; });
    const size_t downs = count(is_down);
    std::string text = std::to_string(mirrors.size()) + ": " + counted(level, "level");
    if (downs > 0)
        text += ", " + counted(downs, "down");
    if (const size_t others = mirrors.size() - level - downs)
        text += ", " + counted(others, "not level");
    return text;
}

// --- Snapshots ---------------------------------------------------------------------------------------

constexpr time_t day = 24 * 60 * 60;

std::string failures_text(const host_health &seen)
{
    size_t failed = 0;
    for (const snapshot_series &one : *seen.snapshots)
        failed += one.marks.failed_at > seen.time - day;
    return failed == 0 ? ""
                       : "failed since yesterday: " + std::to_string(failed) + " of " +
                             counted(seen.snapshots->size(), "disks and groups");
}

std::string last_text(const std::vector<snapshot_series> &all)
{
    const auto last =
        std::ranges::max_element(all, {}, [](const snapshot_series &one) { return one.marks.taken_at; });
    if (last == all.end() || last->marks.taken_at == 0)
        return "none yet";
    return "last " + local_time_text(static_cast<uint64_t>(last->marks.taken_at)) + " (" + title_of(*last) +
           (last->keeper.empty() ? ")" : ", kept by " + last->keeper + ")");
}

// A line each, so that a narrow terminal shows the beginning of all.
void add_snapshots(text_table &rows, const host_health &seen)
{
    if (!seen.snapshots)
        return;
    const uint64_t next = next_of(seen);
    rows.push_back({"snapshots", seen.snapshots->empty() ? "none" : last_text(*seen.snapshots)});
    if (next > 0)
        rows.push_back({"", "next " + local_time_text(next)});
    if (const std::string failures = failures_text(seen); !failures.empty())
        rows.push_back({"", failures});
}

std::string databases_text(const host_health &seen)
{
    if (!seen.is_adopted || !*seen.is_adopted || seen.failure)
        return "";
    std::string text;
    for (const std::string &instance : seen.databases)
        text += (text.empty() ? "" : ", ") + instance;
    return text.empty() ? "none" : text;
}

std::string in_one_table(const host_health &seen)
{
    text_table known;
    const auto add = [&known](const char *what, const std::string &text) {
        if (!text.empty())
            known.push_back({what, text});
    };
    add("config", seen.config ? config_text(*seen.config) : "");
    add("daemon", seen.is_local ? daemon_text(seen) : "");
    add("manager", manager_text(seen));
    add("mirrors", mirrors_text(seen));
    add_snapshots(known, seen);
    add("databases", databases_text(seen));
    return known.empty() ? "" : "\n" + align(known);
}

// Below the line "mirrors" there would be no room for a name; they come as a table of their own.
std::string mirror_table(std::vector<mirror_health> mirrors, const health_limits &limits)
{
    sort_by_grade(mirrors, limits);
    text_table rows;
    for (const mirror_health &one : mirrors)
        rows.push_back({one.view.disk + " -> " + one.place, mirror_words(one)});
    return rows.empty() ? "" : "\n" + align(rows);
}
} // namespace

std::string mirror_words(const mirror_health &one)
{
    const progress_view &progress = one.view.progress;
    const std::string percent = std::to_string(one.view.percent) + " %";
    const std::string far = progress_text(progress);
    const std::string more = far.empty() ? "" : ", " + far;
    const std::string untracked = progress.is_tracked == false ? ", not tracked: " + progress.reason : "";
    switch (one.view.state) {
    case backup_synchronised:
        return "level" + untracked;
    case backup_source_down:
    case backup_destination_down:
        return mirror_state_text(one.view) + more + (one.missing.empty() ? "" : ", " + one.missing);
    case backup_not_synchronised:
        return mirror_state_text(one.view);
    default:
        return mirror_state_text(one.view) + ", " + percent + more + untracked;
    }
}

time_t last_snapshot(const host_health &seen)
{
    time_t last = 0;
    for (const snapshot_series &one : seen.snapshots.value_or(std::vector<snapshot_series>{}))
        last = std::max(last, one.marks.taken_at);
    return last;
}

uint64_t next_of(const host_health &seen)
{
    uint64_t next = 0;
    for (const snapshot_series &one : seen.snapshots.value_or(std::vector<snapshot_series>{})) {
        const uint64_t its_next = one.next();
        next = next == 0 || (its_next != 0 && its_next < next) ? its_next : next;
    }
    return next;
}

std::string status_line(const host_health &seen, const verdict &found)
{
    return std::string(word_of(found.how)) + "  " + visible(seen.name + ": " + found.text);
}

std::string status_page(const host_health &seen, const verdict &found, const health_limits &limits)
{
    return status_line(seen, found) + "\n" + in_one_table(seen) +
           (seen.mirrors ? mirror_table(*seen.mirrors, limits) : "") +
           (found.hint.empty() ? "" : "\nhint: " + visible(found.hint) + "\n");
}
