// The verb for snapshots that no rule keeps. It asks no daemon, and needs root.
#include "platform/linux/agent/retention.h"
#include "platform/linux/state/settings.h"
#include "tools/common/text_table.h"
#include "tools/qelc/outcome.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/kept.h"
#include "tools/snapshots/attachment.h"

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

namespace {
[[noreturn]] void end_unread()
{
    throw verb_end{exit_refused, std::string("/var/lib/kavcdpagt: ") + strerror(errno), "type it as root"};
}

// What the rules do with each snapshot.
outcome show_rules()
{
    auto all = list_snapshots();
    if (!all)
        end_unread();
    text_table rows = {{"Name", "Disk or group", "Stays", "Why"}};
    json_object list = json_object::array();
    const auto titles = disk_titles();
    for (const retention &one : apply_rules(std::move(*all), read_settings().keep)) {
        rows.push_back(
            {one.of.record.name, owner_of(one.of.record, titles), one.goes ? "no" : "yes", one.reason});
        list.push_back({{"snapshot", one.of.record.name},
                        {"status", "planned"},
                        {"stays", !one.goes},
                        {"text", one.reason}});
    }
    const bool is_empty = list.empty();
    return page_outcome(is_empty ? "no snapshots\n" : align(rows), std::move(list));
}

outcome prune(const verb_options &given)
{
    if (given.dry_run)
        return show_rules();
    const auto report = prune_snapshots([](const snapshot &) { return true; });
    if (!report)
        end_unread();
    std::vector<verb_item> items;
    for (const std::string &name : report->removed)
        items.push_back({"snapshot", name, "", exit_ok, "removed"});
    for (const auto &[name, why] : report->not_removed)
        items.push_back({"snapshot", name, "", exit_refused, why});
    outcome end = outcome_of(std::move(items), "qelc snapshots shows their states");
    if (end.items.empty())
        end.remark = "nothing is to be removed";
    return end;
}

constexpr verb table[] = {
    {.name = "snapshots prune",
     .usage = "[--dry-run]",
     .description = "remove the snapshots that no rule keeps",
     .note =
         "The rules stand in /etc/kavtessaron/embedded.conf (keep = ...). Prints the names of those that\n"
         "it removed; with --dry-run, what would stay, and why.\n",
     .add_options = add_consent,
     .act_here = prune},
};
} // namespace

std::span<const verb> prune_verbs()
{
    return table;
}
