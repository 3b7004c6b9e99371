#include "tools/qelc/health/judge.h"

#include "client/inventory_records.h"
#include "tools/common/human_text.h"
#include "tools/qelc/points_in_time.h"

#include <algorithm>
#include <tuple>

namespace {
int severity_of(grade how)
{
    return how == grade::ok ? 0 : how == grade::unknown ? 1 : how == grade::warning ? 2 : 3;
}

grade grade_beyond(uint64_t value, uint32_t warning, uint32_t critical)
{
    if (critical > 0 && value >= critical)
        return grade::critical;
    return warning > 0 && value >= warning ? grade::warning : grade::ok;
}

std::string in_brackets(const std::string &text)
{
    return text.empty() ? "" : " (" + text + ")";
}

// --- Mirrors -----------------------------------------------------------------------------------------

finding down(const mirror_health &one)
{
    const bool is_source = one.view.state == backup_source_down;
    const std::string what =
        is_source ? "disk " + one.view.disk + " is down" : "mirror of " + one.view.disk + " is down";
    const auto &level_ago = one.view.progress.level_ago;
    return {grade::critical,
            what + (level_ago ? ", was level " + time_text(*level_ago) + " ago" : "") +
                in_brackets(one.missing),
            way_to_level(one.view)};
}

// It follows what is written, or is compared anew.
finding recovering(const mirror_health &one, const health_limits &limits)
{
    const std::string what = "mirror of " + one.view.disk;
    const auto &level_ago = one.view.progress.level_ago;
    if (!level_ago)
        return {grade::warning, what + " is behind, nobody knows since when", way_to_level(one.view)};
    return {grade_beyond(*level_ago, limits.behind_warning, limits.behind_critical),
            what + " is " + time_text(*level_ago) + " behind", way_to_level(one.view)};
}

// --- Snapshots ---------------------------------------------------------------------------------------

// The first sentence; the journal has all of it.
std::string brief(const std::string &why)
{
    return why.substr(0, std::min(why.find(". "), why.find("; ")));
}

// A schedule that has not begun yet has missed nothing.
finding judge_age(const snapshot_series &one, time_t now, const health_limits &limits)
{
    constexpr uint32_t patience = 60; // a snapshot waits for its mirrors to be level
    const auto start = std::max(static_cast<time_t>(one.times.start), one.marks.taken_at);
    const uint64_t age = now > start ? static_cast<uint64_t>(now - start) : 0;
    const uint32_t every = one.times.interval;
    const uint32_t missed = every < UINT32_MAX / 2 - patience ? 2 * every + patience : UINT32_MAX;
    const uint32_t warning = limits.snapshot_warning > 0 ? limits.snapshot_warning : missed;
    return {grade_beyond(age, warning, limits.snapshot_critical),
            one.marks.taken_at == 0
                ? title_of(one) + " has no snapshot, its schedule began " + time_text(age) + " ago"
                : "the last snapshot of " + title_of(one) + " is " + time_text(age) + " old",
            "the log of the daemon says why: journalctl -t qelcd"};
}

std::vector<finding> judge_series(const snapshot_series &one, time_t now, const health_limits &limits)
{
    std::vector<finding> found;
    if (one.marks.failed_at > one.marks.taken_at)
        found.push_back({grade::warning,
                         "the last snapshot of " + title_of(one) + " failed, at " +
                             clock_text(one.marks.failed_at) + in_brackets(brief(one.marks.why)),
                         one.is_group ? "to try again: qelc snapshot --group " + one.name
                                      : "to try again: qelc snapshot --disk " + one.name});
    if (one.times.interval > 0)
        found.push_back(judge_age(one, now, limits));
    return found;
}

// --- The heartbeat -----------------------------------------------------------------------------------

constexpr char see_beats[] = "the log of the daemon says why: journalctl -t qelcd";

// Of one that has never come nobody knows for how long it is missed: it is not critical.
finding judge_heartbeat(const host_health &seen, const health_limits &limits)
{
    const time_t since = seen.heartbeat->last > 0 ? seen.heartbeat->last : seen.beats_since;
    const uint64_t age = since > 0 && seen.time > since ? static_cast<uint64_t>(seen.time - since) : 0;
    if (seen.heartbeat->last == 0)
        return {grade_beyond(age, limits.heartbeat_warning, 0), "no heartbeat has reached qelc-manager",
                see_beats};
    const std::string text = "no heartbeat for " + time_text(age);
    const grade how = grade_beyond(age, limits.heartbeat_warning, limits.heartbeat_critical);
    if (!seen.heartbeat->is_taken)
        return {how, text + in_brackets("qelc-manager does not run"), "qelc init starts it"};
    return {how, text, see_beats};
}

// --- The host ----------------------------------------------------------------------------------------

constexpr char last_lines[] = "its last lines say why: journalctl -t qelcd";

finding judge_silence(const host_health &seen)
{
    const verb_end &end = *seen.failure;
    if (seen.is_adopted == false)
        return {grade::unknown, "no manager has adopted this host", end.hint};
    if (seen.is_barred)
        return {grade::unknown, end.reason, end.hint};
    if (seen.answers || !seen.is_local)
        return {grade::critical, "no report from the daemon: " + end.reason, end.hint};
    if (seen.process)
        return {grade::critical, "qelcd runs, but does not answer: " + end.reason, last_lines};
    const bool is_usable = !seen.config || seen.config->faults.empty();
    if (seen.config && seen.config->is_missing)
        return {grade::critical, "qelcd does not run, it has no configuration yet",
                "qelc init writes one and starts all that has to run"};
    return {grade::critical, "qelcd does not run" + in_brackets(is_usable ? "" : seen.config->faults.front()),
            is_usable ? std::string(last_lines) + "; to start it: systemctl start qelcd"
                      : "when that is mended: systemctl start qelcd"};
}

std::vector<finding> all_findings(const host_health &seen, const health_limits &limits)
{
    std::vector<finding> found;
    if (seen.failure)
        found.push_back(judge_silence(seen));
    else if (seen.config && !seen.config->faults.empty())
        found.push_back({grade::warning, "qelcd could not be started again: " + seen.config->faults.front(),
                         "qelc check-config shows what to mend"});
    for (const mirror_health &one : seen.mirrors.value_or(std::vector<mirror_health>{}))
        found.push_back(judge_mirror(one, limits));
    for (const snapshot_series &one : seen.snapshots.value_or(std::vector<snapshot_series>{})) {
        for (finding &each : judge_series(one, seen.time, limits))
            found.push_back(std::move(each));
    }
    if (seen.heartbeat)
        found.push_back(judge_heartbeat(seen, limits));
    std::erase_if(found, [](const finding &one) { return one.how == grade::ok; });
    std::ranges::stable_sort(found, is_worse, &finding::how);
    return found;
}

std::string all_is_well(const host_health &seen)
{
    const size_t count = seen.mirrors ? seen.mirrors->size() : 0;
    if (count == 0)
        return "nothing is mirrored";
    const auto level = static_cast<size_t>(std::ranges::count_if(
        *seen.mirrors, [](const mirror_health &one) { return one.view.state == backup_synchronised; }));
    const std::string mirrors = count == 1 ? "the mirror" : "all " + std::to_string(count) + " mirrors";
    if (level == count)
        return mirrors + (count == 1 ? " is level" : " are level");
    return std::to_string(level) + " of " + std::to_string(count) + (count == 1 ? " mirror" : " mirrors") +
           " level, what was written last follows";
}
} // namespace

bool is_worse(grade one, grade other)
{
    return severity_of(one) > severity_of(other);
}

const char *word_of(grade how)
{
    constexpr const char *words[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return words[static_cast<size_t>(how)];
}

const char *small_word_of(grade how)
{
    constexpr const char *words[] = {"ok", "warning", "critical", "unknown"};
    return words[static_cast<size_t>(how)];
}

finding judge_mirror(const mirror_health &one, const health_limits &limits)
{
    const std::string what = "mirror of " + one.view.disk;
    switch (one.view.state) {
    case backup_synchronised:
        return {grade::ok, what + " is level", ""};
    case backup_synchronising:
        return {grade::warning, what + " is being copied, " + std::to_string(one.view.percent) + " %",
                way_to_level(one.view)};
    case backup_not_synchronised:
        return {grade::warning, what + " is not synchronised", way_to_level(one.view)};
    case backup_recovering:
        return recovering(one, limits);
    case backup_source_down:
    case backup_destination_down:
        return down(one);
    default:
        return {grade::unknown, what + " is in " + mirror_state_text(one.view), ""};
    }
}

verdict judge(const host_health &seen, const health_limits &limits)
{
    verdict all{.findings = all_findings(seen, limits)};
    if (all.findings.empty()) {
        all.text = all_is_well(seen);
        return all;
    }
    const finding &worst = all.findings.front();
    all.how = worst.how;
    all.text = worst.text;
    all.hint = worst.hint;
    return all;
}

void sort_by_grade(std::vector<mirror_health> &mirrors, const health_limits &limits)
{
    const auto rank = [&](const mirror_health &one) {
        return std::tuple(-severity_of(judge_mirror(one, limits).how), one.view.disk);
    };
    std::ranges::stable_sort(mirrors, {}, rank);
}
