#include "tools/qelc/views/metrics.h"

#include "client/inventory_records.h"
#include "tools/common/visible.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <utility>

namespace {
using labels = std::vector<std::pair<const char *, std::string>>;

// In a value of a label a backslash, a quote and a newline are escaped; visible leaves none of the last.
std::string label_text(const std::string &value)
{
    std::string safe;
    for (const char byte : visible(value)) {
        if (byte == '\\' || byte == '"')
            safe += '\\';
        safe += byte;
    }
    return safe;
}

// One metric: its samples follow its description, as both formats want it.
class family {
public:
    family(std::string &page, const char *name, const char *type, const char *help) : page_(page), name_(name)
    {
        head_ = std::string("# HELP ") + name + " " + help + "\n";
        if (*type)
            head_ += std::string("# TYPE ") + name + " " + type + "\n";
    }

    void add(const labels &of, double value)
    {
        page_ += std::exchange(head_, "") + name_;
        const char *separator = "{";
        for (const auto &[key, text] : of) {
            page_ += std::string(separator) + key + "=\"" + label_text(text) + "\"";
            separator = ",";
        }
        char number[32];
        snprintf(number, sizeof number, "%s %.15g\n", of.empty() ? "" : "}", value);
        page_ += number;
    }

    template <class number>
    void add_known(const labels &of, const std::optional<number> &value)
    {
        if (value)
            add(of, static_cast<double>(*value));
    }

private:
    std::string &page_;
    const char *name_;
    std::string head_; // until it is printed
};

// --- The daemon --------------------------------------------------------------------------------------

void add_daemon(std::string &page, const host_health &seen)
{
    if (!seen.is_barred)
        family(page, "qelcd_up", "gauge", "Whether the daemon answers.").add({}, seen.answers);
    family(page, "qelcd_adopted", "gauge", "Whether a manager has adopted the host.")
        .add_known({}, seen.is_adopted);
    if (seen.heartbeat && seen.heartbeat->last > 0)
        family(page, "qelcd_heartbeat_age_seconds", "gauge",
               "Since the last heartbeat to a manager on this host.")
            .add({}, static_cast<double>(std::max<time_t>(seen.time - seen.heartbeat->last, 0)));
    if (seen.config)
        family(page, "qelcd_config_usable", "gauge", "Whether the daemon can use its configuration.")
            .add({}, seen.config->faults.empty());
    if (!seen.process)
        return;
    if (seen.process->since != 0)
        family(page, "qelcd_start_time_seconds", "gauge", "When the working process was started.")
            .add({}, static_cast<double>(seen.process->since));
    family(page, "qelcd_memory_bytes", "gauge", "Memory of both processes of the daemon (PSS).")
        .add_known({}, seen.process->memory);
}

// --- Mirrors -----------------------------------------------------------------------------------------

labels labels_of(const mirror_health &one)
{
    return {{"disk", one.view.disk}, {"guid", one.view.guids.source}, {"mirror", one.place}};
}

constexpr std::pair<uint32_t, const char *> states[] = {
    {backup_synchronised, "synchronised"},   {backup_not_synchronised, "not_synchronised"},
    {backup_synchronising, "synchronising"}, {backup_recovering, "recovering"},
    {backup_source_down, "source_down"},     {backup_destination_down, "mirror_down"},
};

void add_states(std::string &page, const std::vector<mirror_health> &mirrors)
{
    family state(page, "qelcd_mirror_state", "gauge", "1 for the state that the mirror is in, else 0.");
    for (const mirror_health &one : mirrors) {
        for (const auto &[number, name] : states) {
            labels with_state = labels_of(one);
            with_state.emplace_back("state", name);
            state.add(with_state, one.view.state == number);
        }
    }
}

template <class number>
void add_progress(std::string &page, const std::vector<mirror_health> &mirrors, const char *name,
                  const char *help, std::optional<number> progress_view::*value)
{
    family each(page, name, "gauge", help);
    for (const mirror_health &one : mirrors)
        each.add_known(labels_of(one), one.view.progress.*value);
}

void add_mirrors(std::string &page, const std::vector<mirror_health> &mirrors)
{
    add_states(page, mirrors);
    family done(page, "qelcd_mirror_done_ratio", "gauge", "How much of the mirror is as its disk.");
    for (const mirror_health &one : mirrors)
        done.add(labels_of(one), one.view.percent / 100.0);
    add_progress(page, mirrors, "qelcd_mirror_behind_bytes", "What may differ from the disk.",
                 &progress_view::bytes_behind);
    add_progress(page, mirrors, "qelcd_mirror_behind_seconds", "How long ago the mirror was level last.",
                 &progress_view::level_ago);
    add_progress(page, mirrors, "qelcd_mirror_rate_bytes_per_second", "Of a copy or a pass that runs.",
                 &progress_view::rate);
    add_progress(page, mirrors, "qelcd_mirror_tracked", "Whether the writes of the disk are tracked.",
                 &progress_view::is_tracked);
}

// --- Snapshots ---------------------------------------------------------------------------------------

void add_series(std::string &page, const std::vector<snapshot_series> &all, const char *name,
                const char *type, const char *help,
                const std::function<std::optional<double>(const snapshot_series &)> &value)
{
    family each(page, name, type, help);
    for (const snapshot_series &one : all)
        each.add_known({{one.is_group ? "group" : "disk", one.name}}, value(one));
}

void add_snapshots(std::string &page, const std::vector<snapshot_series> &all, time_t now)
{
    add_series(page, all, "qelcd_snapshots", "gauge", "Snapshots that keepers keep.",
               [](const snapshot_series &one) { return std::optional(static_cast<double>(one.kept)); });
    // Of no type, as the two formats have different names for a counter.
    add_series(
        page, all, "qelcd_snapshot_failures_total", "", "Snapshots that failed, by the journal.",
        [](const snapshot_series &one) { return std::optional(static_cast<double>(one.marks.failures)); });
    add_series(page, all, "qelcd_snapshot_last_failed", "gauge", "Whether the last one failed.",
               [](const snapshot_series &one) {
                   return std::optional<double>(one.marks.failed_at > one.marks.taken_at);
               });
    add_series(page, all, "qelcd_snapshot_age_seconds", "gauge", "Since the last snapshot.",
               [now](const snapshot_series &one) {
                   const auto age = static_cast<double>(now - one.marks.taken_at);
                   return one.marks.taken_at == 0 ? std::nullopt : std::optional(age);
               });
    add_series(page, all, "qelcd_snapshot_interval_seconds", "gauge", "Of the schedule.",
               [](const snapshot_series &one) {
                   const auto every = static_cast<double>(one.times.interval);
                   return one.times.interval == 0 ? std::nullopt : std::optional(every);
               });
}
} // namespace

std::string metrics_page(const host_health &seen)
{
    std::string page;
    add_daemon(page, seen);
    if (seen.mirrors)
        add_mirrors(page, *seen.mirrors);
    if (seen.snapshots)
        add_snapshots(page, *seen.snapshots, seen.time);
    return page + "# EOF\n";
}
