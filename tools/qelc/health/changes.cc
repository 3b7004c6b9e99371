#include "tools/qelc/health/changes.h"

#include <algorithm>

namespace {
using change_list = std::vector<host_change>;

const std::vector<mirror_health> &mirrors_of(const host_health &seen)
{
    static const std::vector<mirror_health> none;
    return seen.mirrors ? *seen.mirrors : none;
}

const mirror_health *find(const std::vector<mirror_health> &all, const mirror_pair &guids)
{
    const auto found = std::ranges::find_if(all, [&](const mirror_health &one) {
        return one.view.guids.source == guids.source && one.view.guids.mirror == guids.mirror;
    });
    return found == all.end() ? nullptr : &*found;
}

const char *daemon_word(const host_health &seen)
{
    return seen.answers ? "up" : "down";
}

// A new working process may have come and answered between two looks.
void compare_daemons(const host_health &before, const host_health &after, change_list &all)
{
    const bool is_new = before.process && after.process && after.process->worker != before.process->worker &&
                        before.answers && after.answers;
    if (is_new)
        all.push_back({.time = after.time, .about = "daemon", .now = "restarted", .was = "up"});
    else if (before.answers != after.answers)
        all.push_back({.time = after.time,
                       .about = "daemon",
                       .now = daemon_word(after),
                       .was = daemon_word(before),
                       .reason = after.answers || !after.failure ? "" : after.failure->reason});
}

void compare_adoptions(const host_health &before, const host_health &after, change_list &all)
{
    const auto word = [](bool is_adopted) { return is_adopted ? "adopted" : "released"; };
    if (!after.is_adopted || !before.is_adopted || *before.is_adopted == *after.is_adopted)
        return;
    const host_health &with = *after.is_adopted ? after : before;
    all.push_back({.time = after.time,
                   .about = "adoption",
                   .now = word(*after.is_adopted),
                   .was = word(*before.is_adopted),
                   .name = with.manager ? with.manager->addresses : ""});
}

host_change mirror_change(time_t time, const mirror_health &one, const std::string &now,
                          const std::string &was)
{
    return {.time = time,
            .about = "mirror",
            .now = now,
            .was = was,
            .name = one.view.disk,
            .guid = one.view.guids.source,
            .reason = one.missing};
}

void compare_mirrors(const host_health &before, const host_health &after, change_list &all)
{
    for (const mirror_health &one : mirrors_of(after)) {
        const mirror_health *former = find(mirrors_of(before), one.view.guids);
        const std::string was = former ? mirror_state_text(former->view) : "";
        if (!former || former->view.state != one.view.state)
            all.push_back(mirror_change(after.time, one, mirror_state_text(one.view), was));
    }
    for (const mirror_health &one : mirrors_of(before)) {
        if (!find(mirrors_of(after), one.view.guids))
            all.push_back(mirror_change(after.time, one, "no longer a mirror", mirror_state_text(one.view)));
    }
}

void compare_snapshots(const host_health &before, const host_health &after, change_list &all)
{
    if (!before.snapshots || !after.snapshots)
        return;
    for (const std::string &name : before.kept) {
        if (!after.kept.contains(name))
            all.push_back({.time = after.time,
                           .about = "snapshot",
                           .now = "removed",
                           .was = "taken",
                           .snapshot = name});
    }
}

std::string disk_name(const host_health &seen, const std::string &mirror)
{
    const auto found = std::ranges::find(mirrors_of(seen), mirror,
                                         [](const mirror_health &one) { return one.view.guids.mirror; });
    return found == mirrors_of(seen).end() ? mirror : found->view.disk;
}
} // namespace

std::vector<host_change> marks_in(const host_health &after)
{
    change_list all;
    for (const journal_mark &mark : after.marks)
        all.push_back({.time = mark.time,
                       .about = "snapshot",
                       .now = mark.is_taken ? "taken" : "failed",
                       .name = mark.group.empty() ? disk_name(after, mark.mirror) : "group " + mark.group,
                       .snapshot = mark.is_taken ? mark.text : "",
                       .reason = mark.is_taken ? "" : mark.text});
    return all;
}

void carry_over(const host_health &before, host_health &after)
{
    if (!after.is_adopted)
        after.is_adopted = before.is_adopted;
    if (!after.manager)
        after.manager = before.manager;
    if (!after.mirrors)
        after.mirrors = before.mirrors;
}

std::vector<host_change> changes_between(const host_health &before, const host_health &after)
{
    change_list all;
    compare_daemons(before, after, all);
    compare_adoptions(before, after, all);
    compare_mirrors(before, after, all);
    for (host_change &one : marks_in(after))
        all.push_back(std::move(one));
    compare_snapshots(before, after, all);
    return all;
}

std::string text_of(const host_change &change)
{
    const std::string name = change.name.empty() ? change.about : change.name;
    const bool is_snapshot = std::string_view(change.about) == "snapshot";
    std::string text = is_snapshot ? "snapshot of " + name + " " + change.now : name + ": " + change.now;
    if (is_snapshot && change.name.empty())
        text = "snapshot " + change.snapshot + " " + change.now;
    return text + (change.reason.empty() ? "" : ", " + change.reason);
}
