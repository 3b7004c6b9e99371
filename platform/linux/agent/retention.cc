#include "platform/linux/agent/retention.h"

#include "platform/linux/agent/keepers.h"
#include "platform/linux/agent/restores.h"
#include "platform/linux/agent/snapshot_acts.h"
#include "platform/linux/host/text.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/settings.h"

#include <algorithm>
#include <chrono>

namespace {

bool is_of_group(const snapshot &one)
{
    return !one.group.empty();
}

bool is_same_series(const snapshot &one, const snapshot &other)
{
    return is_of_group(one) == is_of_group(other) && whose(one) == whose(other);
}

// The number of the week since 1970, which starts on Monday, of a time as 2026-11-22T14:05:09Z.
std::string week_of(const std::string &time)
{
    using namespace std::chrono;
    const auto part = [&](size_t first, size_t length) {
        const auto text = std::string_view(time).substr(std::min(first, time.size()), length);
        return static_cast<unsigned>(parse_number(text).value_or(0));
    };
    const sys_days date = year(static_cast<int>(part(0, 4))) / month(part(5, 2)) / day(part(8, 2));
    constexpr auto from_monday_to_epoch = 3;
    return std::to_string((date.time_since_epoch().count() + from_monday_to_epoch) / 7);
}

// What of a time tells a period from the next one.
constexpr struct {
    const char *word;
    unsigned keep_rule::*number;
    std::string (*period_of)(const std::string &time);
} kinds[] = {
    {"hourly", &keep_rule::hourly, [](const std::string &time) { return time.substr(0, 13); }},
    {"daily", &keep_rule::daily, [](const std::string &time) { return time.substr(0, 10); }},
    {"weekly", &keep_rule::weekly, week_of},
    {"monthly", &keep_rule::monthly, [](const std::string &time) { return time.substr(0, 7); }},
};

// ONES: the snapshots of one disk or group that count, the oldest first.
void keep_last(const std::vector<retention *> &ones, const keep_rule &rule)
{
    const size_t count = std::min<size_t>(ones.size(), std::max(rule.last, 1U));
    for (size_t i = ones.size() - count; i < ones.size(); i++)
        ones[i]->reason = rule.last == all_snapshots ? "all stay" : rule.last == 0 ? "newest" : "last";
}

// The first snapshot of a period is the one that stays: it goes on doing so when the next one comes.
void keep_firsts(const std::vector<retention *> &ones, const keep_rule &rule)
{
    for (const auto &kind : kinds) {
        std::vector<retention *> firsts;
        std::string former;
        for (retention *one : ones) {
            const std::string period = kind.period_of(one->of.record.time);
            if (period != former)
                firsts.push_back(one);
            former = period;
        }
        const size_t count = std::min<size_t>(firsts.size(), rule.*kind.number);
        for (size_t i = firsts.size() - count; i < firsts.size(); i++)
            firsts[i]->reason += (firsts[i]->reason.empty() ? "" : ", ") + std::string(kind.word);
    }
}

// A snapshot whose process is not there any more never becomes whole.
bool is_abandoned(const snapshot &one)
{
    return !one.is_complete && try_lock_snapshot(one.name).is_open();
}

void judge_alone(retention *one)
{
    switch (one->of.state) {
    case snapshot_state::unfinished:
        one->goes = is_abandoned(one->of.record);
        one->reason = one->goes ? "was not finished" : "is being taken or removed";
        break;
    case snapshot_state::gone:
        one->reason = "its data is gone";
        break;
    case snapshot_state::unknown:
        one->reason = one->of.why;
        break;
    default:
        break;
    }
}

// A restore that was not finished cannot go on without its snapshot, which a start of the host has detached.
void keep_for_restores(const std::vector<retention *> &ones)
{
    const auto restores = load_restores();
    for (retention *one : ones) {
        if (!restores ||
            std::ranges::find(*restores, one->of.record.name, &restore_record::snapshot) != restores->end())
            one->reason +=
                (one->reason.empty() ? "" : ", ") + std::string("a restore of it was not finished");
    }
}

void judge_series(const std::vector<retention *> &ones, const keep_rule &rule)
{
    keep_last(ones, rule);
    keep_firsts(ones, rule);
    keep_for_restores(ones);
    for (retention *one : ones) {
        one->goes = one->reason.empty() && one->of.state != snapshot_state::attached;
        if (one->reason.empty())
            one->reason = one->goes ? "no rule keeps it" : "attached";
    }
}

prune_report remove_all(const std::vector<retention> &judged)
{
    prune_report report;
    for (const retention &one : judged) {
        const std::string &name = one.of.record.name;
        std::string why;
        if (one.goes && remove_snapshot(name, &why))
            report.removed.push_back(name);
        else if (one.goes)
            report.not_removed.emplace_back(name, why);
    }
    return report;
}

void log_report(const prune_report &report)
{
    for (const std::string &name : report.removed)
        log_info("Snapshot %s was removed, as no rule keeps it", name.c_str());
    for (const auto &[name, why] : report.not_removed)
        log_warning("Snapshot %s, which no rule keeps, cannot be removed: %s", name.c_str(), why.c_str());
}

// How full the store of a member is, in percent.
uint64_t fill_of(const snapshot &one, const snapshot_member &member, const unique_fd &lock)
{
    const keeper_answer answer = ask_keeper_of(keeper_verb::space, one, member, lock);
    const std::string_view whole = std::string_view(answer.output).substr(0, answer.output.find('.'));
    return answer.is_done ? parse_number(whole).value_or(0) : 0;
}

// The first member whose store is too full, and how full it is; null if there is none.
const snapshot_member *find_full(const snapshot &one, const unique_fd &lock, uint64_t limit, uint64_t *fill)
{
    for (const snapshot_member &member : one.members) {
        *fill = fill_of(one, member, lock);
        if (*fill >= limit)
            return &member;
    }
    return nullptr;
}

} // namespace

std::vector<retention> apply_rules(std::vector<listed_snapshot> all, const keep_rules &rules)
{
    std::vector<retention> judged;
    for (listed_snapshot &one : all)
        judged.push_back({std::move(one), false, ""});
    std::map<std::pair<bool, std::string>, std::vector<retention *>> series;
    for (retention &one : judged) {
        judge_alone(&one);
        if (one.of.state == snapshot_state::ok || one.of.state == snapshot_state::attached)
            series[{is_of_group(one.of.record), whose(one.of.record)}].push_back(&one);
    }
    for (const auto &[key, ones] : series)
        judge_series(ones, rules.rule_for(key.first, key.second));
    return judged;
}

std::optional<prune_report> prune_snapshots(const std::function<bool(const snapshot &)> &is_wanted)
{
    auto all = list_snapshots({.is_wanted = is_wanted});
    if (!all)
        return std::nullopt;
    return remove_all(apply_rules(std::move(*all), read_settings().keep));
}

void prune_series_of(const snapshot &one)
{
    if (read_settings().keep.rule_for(is_of_group(one), whose(one)).last == all_snapshots)
        return;
    const auto report = prune_snapshots([&](const snapshot &other) { return is_same_series(one, other); });
    if (report)
        log_report(*report);
}

bool make_room_for(const snapshot &one, const unique_fd &lock, std::string *why)
{
    const uint64_t limit = read_settings().fill_limit;
    uint64_t fill = 0;
    if (limit == 100 || !find_full(one, lock, limit, &fill))
        return true;
    const auto report = prune_snapshots([](const snapshot &) { return true; });
    if (report)
        log_report(*report);
    const snapshot_member *full = find_full(one, lock, limit, &fill);
    if (full)
        *why = "what keeps " + full->mirror + " is " + std::to_string(fill) + " % full, and fill_limit is " +
               std::to_string(limit) +
               ". Give it room, or remove snapshots: qelc snapshots remove, or fewer " +
               "with a keep rule, in /etc/kavtessaron/embedded.conf";
    return !full;
}
