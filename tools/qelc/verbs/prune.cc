// The verb for snapshots that no rule keeps. It asks no daemon, and needs root.
#include "platform/linux/agent/retention.h"
#include "platform/linux/state/settings.h"
#include "tools/common/text_table.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/json_answer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace {
void print_json(const json_object &object)
{
    puts(object.dump(-1, ' ', false, json_object::error_handler_t::replace).c_str());
}

int fail_unread()
{
    return fail(exit_refused, "/var/lib/kavcdpagt", strerror(errno));
}

// What the rules do with each snapshot.
int show_rules(bool as_json)
{
    auto all = list_snapshots();
    if (!all)
        return fail_unread();
    text_table rows = {{"Name", "Disk or group", "Stays", "Why"}};
    json_object list = json_object::array();
    for (const retention &one : apply_rules(std::move(*all), read_settings().keep)) {
        rows.push_back({one.of.record.name, whose(one.of.record), one.goes ? "no" : "yes", one.reason});
        list.push_back({{"name", one.of.record.name}, {"stays", !one.goes}, {"why", one.reason}});
    }
    if (as_json)
        print_json({{"snapshots", list}});
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
        return fail_unread();
    if (as_json)
        print_json({{"removed", report->removed}, {"not_removed", report->not_removed}});
    for (const std::string &name : as_json ? std::vector<std::string>{} : report->removed)
        printf("%s\n", name.c_str());
    int status = exit_ok;
    for (const std::string &line : report->not_removed)
        status = fail(exit_refused, "snapshots prune", line);
    return status;
}

constexpr verb table[] = {
    {.name = "snapshots prune",
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
