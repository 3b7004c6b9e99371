// Verbs for the snapshots that keepers keep on this host. They ask no daemon, and need root.
#include "tools/qelc/views/kept.h"

#include "platform/linux/agent/snapshot_acts.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/verbs/families.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
bool is_wanted(const snapshot &one, const verb_options &given)
{
    if (!given.group.empty())
        return one.group == given.group;
    const auto is_disk = [&](const snapshot_member &member) { return member.source == given.disk; };
    return given.disk.empty() || std::ranges::any_of(one.members, is_disk);
}

int list_all(const verb_options &given, bool as_json)
{
    auto all = list_snapshots();
    if (!all)
        return fail(exit_refused, "/var/lib/kavcdpagt", strerror(errno));
    std::erase_if(*all, [&](const listed_snapshot &one) { return !is_wanted(one.record, given); });
    fputs((as_json ? kept_json(*all) : kept_page(*all)).c_str(), stdout);
    return exit_ok;
}

int attach(const verb_options &given, bool /*as_json*/)
{
    const std::string &name = given.snapshots.front();
    std::vector<std::string> devices;
    std::string why;
    if (!attach_snapshot(name, &devices, &why))
        return fail(exit_refused, name, why);
    for (const std::string &device : devices)
        printf("%s\n", device.c_str());
    fflush(stdout);
    for (const std::string &device : devices)
        fputs(mount_hints(device).c_str(), stderr);
    return exit_ok;
}

// Goes on after a failure.
int for_each_name(const verb_options &given, bool (*act)(const std::string &name, std::string *why))
{
    int status = exit_ok;
    for (const std::string &name : given.snapshots) {
        std::string why;
        if (!act(name, &why))
            status = fail(exit_refused, name, why);
    }
    return status;
}

int detach(const verb_options &given, bool /*as_json*/)
{
    return for_each_name(given, detach_snapshot);
}

int remove(const verb_options &given, bool /*as_json*/)
{
    return for_each_name(given, remove_snapshot);
}

constexpr verb table[] = {
    {.name = "snapshots",
     .usage = "[--disk GUID | --group NAME]\n       qelc snapshots (attach | detach | remove) NAME...",
     .description = "show the snapshots that are kept on this host",
     .note = "It looks at what is there now; a snapshot whose data is not there is \"gone\".\n",
     .add_options = add_disk_or_group,
     .run_here = list_all},
    {.name = "snapshots attach",
     .usage = "NAME",
     .description = "make read-only block devices of a snapshot",
     .note = "Prints the path of each, and on standard error how to mount what is on it.\n",
     .add_options = add_snapshot_name,
     .run_here = attach},
    {.name = "snapshots detach",
     .usage = "NAME",
     .description = "end the block devices of a snapshot",
     .add_options = add_snapshot_name,
     .run_here = detach},
    {.name = "snapshots remove",
     .usage = "NAME...",
     .description = "remove snapshots, unless they are attached",
     .add_options = add_snapshot_names,
     .run_here = remove},
};
} // namespace

std::span<const verb> kept_verbs()
{
    return table;
}
