// The verb for snapshots that no rule keeps. It asks no daemon, and needs root.
#include "platform/linux/agent/retention.h"
#include "platform/linux/state/settings.h"
#include "tools/common/text_table.h"
#include "tools/qelc/outcome.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/envelope.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace {
constexpr char name_of_verb[] = "snapshots prune";

int fail_unread(bool as_json)
{
    const std::string reason = std::string("/var/lib/kavcdpagt: ") + strerror(errno);
    return print_outcome(name_of_verb, {exit_refused, reason, "type it as root"}, as_json);
}

// What the rules do with each snapshot.
int show_rules(bool as_json)
{
    auto all = list_snapshots();
    if (!all)
        return fail_unread(as_json);
    text_table rows = {{"Name", "Disk or group", "Stays", "Why"}};
    json_object list = json_object::array();
    for (const retention &one : apply_rules(std::move(*all), read_settings().keep)) {
        rows.push_back({one.of.record.name, whose(one.of.record), one.goes ? "no" : "yes", one.reason});
        list.push_back({{"snapshot", one.of.record.name}, {"stays", !one.goes}, {"text", one.reason}});
    }
    if (as_json)
        print_envelope(name_of_verb, exit_ok, "", "", list);
    else
        fputs(align(rows).c_str(), stdout);
    return exit_ok;
}

int prune(const verb_options &given, bool as_json)
{
    if (given.dry_run)
        return show_rules(as_json);
    const auto report = prune_snapshots([](const snapshot &) { return true; });
    if (!report)
        return fail_unread(as_json);
    std::vector<verb_item> items;
    for (const std::string &name : report->removed)
        items.push_back({"snapshot", name, "", exit_ok, "removed"});
    for (const auto &[name, why] : report->not_removed)
        items.push_back({"snapshot", name, "", exit_refused, why});
    outcome end = outcome_of(std::move(items), "qelc snapshots shows their states");
    if (end.items.empty())
        end.remark = "nothing is to be removed";
    return print_outcome(name_of_verb, end, as_json);
}

constexpr verb table[] = {
    {.name = name_of_verb,
     .usage = "[--dry-run]",
     .description = "remove the snapshots that no rule keeps",
     .note =
         "The rules stand in /etc/kavtessaron/embedded.conf (keep = ...). Prints the names of those that\n"
         "it removed; with --dry-run, what would stay, and why.\n",
     .add_options = add_dry_run,
     .run_here = prune},
};
} // namespace

std::span<const verb> prune_verbs()
{
    return table;
}
