// Verbs for the snapshots that keepers keep on this host. They ask no daemon, and need root.
#include "tools/qelc/views/kept.h"

#include "platform/linux/agent/restores.h"
#include "platform/linux/agent/snapshot_acts.h"
#include "tools/common/visible.h"
#include "tools/qelc/here.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/verbs/restore.h"
#include "tools/snapshots/contents.h"
#include "tools/snapshots/mounts.h"
#include "tools/volumes/host_view.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace {
// The GUID of a disk that a person names. A disk that is not there any more has snapshots, too.
std::string guid_meant(const std::string &name)
{
    std::string why;
    const auto disk = name.empty() ? std::nullopt : find_disk(name, &why);
    return disk ? disk->guid : name;
}

bool is_wanted(const snapshot &one, const std::string &group, const std::string &disk)
{
    if (!group.empty())
        return one.group == group;
    return disk.empty() ||
           std::ranges::find(one.members, disk, &snapshot_member::source) != one.members.end();
}

[[noreturn]] void end_unread()
{
    throw verb_end{exit_refused, std::string("/var/lib/kavcdpagt: ") + strerror(errno), "type it as root"};
}

outcome list_all(const verb_options &given)
{
    const std::string disk = guid_meant(given.disk);
    const auto is_of_these = [&](const snapshot &one) { return is_wanted(one, given.group, disk); };
    const auto all = list_snapshots({.is_wanted = is_of_these, .with_sizes = true});
    if (!all)
        end_unread();
    const auto restores = restores_to_show();
    return page_outcome(kept_page(*all, restores), kept_records(*all, restores));
}

// --- One snapshot ----------------------------------------------------------------------------------------

// Throws verb_end for a name that could not be acted on.
[[noreturn]] void refuse(const std::string &name, const std::string &why)
{
    throw verb_end{exit_refused, name + ": " + why, "qelc snapshots shows the snapshots and their states"};
}

outcome planned(const std::string &name, const std::string &text)
{
    return {.items = {{"snapshot", name, "", exit_ok, text}}, .is_dry_run = true};
}

// The path of each device, or of that partition of it. Null with the reason in WHY.
std::optional<std::vector<std::string>> paths_of(const attached_snapshot &one,
                                                 const std::optional<uint64_t> &partition, std::string *why)
{
    if (!partition)
        return one.devices;
    std::vector<std::string> paths;
    for (const std::string &device : one.devices) {
        const auto path = partition_device(device, *partition, why);
        if (!path)
            return std::nullopt;
        paths.push_back(*path);
    }
    return paths;
}

void print_hints(const std::vector<std::string> &devices)
{
    for (const std::string &device : devices)
        fputs(mount_hints(device).c_str(), stderr);
}

outcome attach(const verb_options &given)
{
    require_root();
    const std::string name = require_snapshot(given).name;
    if (given.dry_run)
        return planned(name, "attached, read-only");
    std::string why, ignored;
    const auto one = attach_snapshot(name, &why);
    const auto paths = one ? paths_of(*one, given.partition, &why) : std::nullopt;
    if (one && !paths && !one->was_attached)
        detach_patiently(name, &ignored);
    if (!paths)
        refuse(name, why);
    outcome end;
    for (size_t i = 0; i < paths->size(); i++) {
        end.page += visible((*paths)[i]) + "\n";
        end.items.push_back({"snapshot",
                             name,
                             one->record.members[i].source,
                             exit_ok,
                             "is attached",
                             {{"device", (*paths)[i]}}});
    }
    if (!given.partition)
        print_hints(one->devices);
    return end;
}

outcome mount(const verb_options &given)
{
    require_root();
    const std::string name = require_snapshot(given).name;
    std::string why;
    if (empty_folder(given.folder, &why).empty())
        throw verb_end{exit_refused, why, "name an empty folder; mkdir makes one"};
    if (given.dry_run)
        return planned(name, "mounted on " + given.folder + ", read-only");
    const auto points = mount_snapshot({name, given.folder, given.partition}, &why);
    if (!points)
        refuse(name, why);
    outcome end;
    for (const std::string &point : *points) {
        end.page += visible(point) + "\n";
        end.items.push_back({"snapshot", name, "", exit_ok, "is mounted", {{"mounted_on", point}}});
    }
    return end;
}

outcome unmount(const verb_options &given)
{
    require_root();
    const std::string name = require_snapshot(given).name;
    if (given.dry_run)
        return planned(name, "unmounted and detached");
    std::string why;
    if (!unmount_snapshot(name, &why))
        refuse(name, why);
    return {.items = {{"snapshot", name, "", exit_ok, "is unmounted and detached"}}};
}

// --- Several snapshots -----------------------------------------------------------------------------------

std::string objection_to(const std::string &name, std::string (*objection)(const listed_snapshot &found))
{
    std::string why;
    const auto found = look_at_snapshot(name, &why);
    return found ? objection(*found) : why;
}

// Goes on after a failure. With --dry-run OBJECTION says what would fail, "" for nothing.
outcome for_each_name(const verb_options &given, bool (*act)(const std::string &name, std::string *why),
                      const char *done, std::string (*objection)(const listed_snapshot &found),
                      const char *hint = "qelc snapshots shows the snapshots and their states")
{
    require_root();
    std::vector<verb_item> items;
    for (const std::string &name : given.snapshots) {
        verb_item item{"snapshot", name, "", exit_ok, (given.dry_run ? "" : "is ") + std::string(done)};
        std::string why;
        if (!load_snapshot(name))
            item.refuse(exit_not_found, "there is no such snapshot");
        else if (given.dry_run)
            why = objection_to(name, objection);
        else if (act(name, &why))
            why.clear();
        if (item.is_open() && !why.empty())
            item.refuse(exit_refused, why);
        items.push_back(std::move(item));
    }
    outcome end = outcome_of(std::move(items), hint);
    end.is_dry_run = given.dry_run;
    return end;
}

outcome detach(const verb_options &given)
{
    return for_each_name(given, detach_snapshot, "detached",
                         [](const listed_snapshot &) { return std::string(); });
}

// A restore of it that was not finished cannot go on without it.
bool remove_with_restores(const std::string &name, std::string *why)
{
    if (!remove_snapshot(name, why))
        return false;
    for (const restore_record &one : load_restores().value_or(std::vector<restore_record>{})) {
        if (one.snapshot == name)
            forget_restore(one.disk);
    }
    return true;
}

std::string removal_objection(const listed_snapshot &found)
{
    return found.devices.empty() ? "" : "it is attached as " + found.devices.front();
}

outcome remove(const verb_options &given)
{
    return for_each_name(given, remove_with_restores, "removed", removal_objection,
                         "qelc snapshots shows their states; qelc snapshots detach NAME ends a device");
}

constexpr verb table[] = {
    {.name = "snapshots",
     .usage = "[--disk DISK | --group NAME]\n"
              "       qelc snapshots (mount | umount | restore | attach | detach | remove) NAME...\n"
              "       qelc snapshots prune [--dry-run]",
     .description = "show the snapshots that are kept on this host",
     .note = "It looks at what is there now; a snapshot whose data is not there is \"gone\".\n",
     .add_options = add_disk_or_group,
     .act_here = list_all,
     .only_shows = true},
    {.name = "snapshots attach",
     .usage = "NAME [--partition N] [--dry-run]",
     .description = "make read-only block devices of a snapshot",
     .note = "Prints the path of each, and on standard error how to mount what is on it; with\n"
             "--partition the path of that partition, and nothing else.\n",
     .add_options = add_attach_options,
     .act_here = attach},
    {.name = "snapshots detach",
     .usage = "NAME... [--dry-run]",
     .description = "end the block devices of snapshots",
     .add_options = add_names_to_change,
     .act_here = detach},
    {.name = "snapshots mount",
     .usage = "NAME DIR [--partition N] [--dry-run]",
     .description = "attach a snapshot and mount its file system",
     .note = "Read-only, and without a look at the journal: what was only in that at the moment\n"
             "of the snapshot is not seen. The disks of a group become folders in DIR. Without\n"
             "--partition there must be one file system only. Prints where it is mounted.\n",
     .add_options = add_mount_options,
     .act_here = mount},
    {.name = "snapshots umount",
     .usage = "NAME [--dry-run]",
     .description = "unmount a snapshot and detach it",
     .add_options = add_snapshot_name,
     .act_here = unmount},
    {.name = "snapshots restore",
     .usage = "NAME [--to DISK] [--yes] [--dry-run] [--no-snapshot]",
     .description = "overwrite a disk with a snapshot",
     .note = "Only what differs is written; the disk keeps its signature. A snapshot of its\n"
             "present state is taken first. Without --to, and for a group, each disk gets its\n"
             "own state back. If it is ended in the middle, the same command goes on.\n",
     .add_options = add_restore_options,
     .act_here = restore},
    {.name = "snapshots remove",
     .usage = "NAME... [--dry-run]",
     .description = "remove snapshots, unless they are attached",
     .add_options = add_names_to_change,
     .act_here = remove},
};
} // namespace

std::span<const verb> kept_verbs()
{
    return table;
}
