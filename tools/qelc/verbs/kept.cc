// Verbs for the snapshots that keepers keep on this host. They ask no daemon, and need root.
#include "tools/qelc/views/kept.h"

#include "base/log.h"
#include "platform/linux/agent/restores.h"
#include "platform/linux/agent/snapshot_acts.h"
#include "tools/common/visible.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/verbs/restore.h"
#include "tools/qelc/views/volumes.h"
#include "tools/snapshots/contents.h"
#include "tools/snapshots/mounts.h"
#include "tools/volumes/host_view.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

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

int list_all(const verb_options &given, bool as_json)
{
    const std::string disk = guid_meant(given.disk);
    const auto is_of_these = [&](const snapshot &one) { return is_wanted(one, given.group, disk); };
    const auto all = list_snapshots({.is_wanted = is_of_these, .with_sizes = true});
    if (!all)
        return fail(exit_refused, "/var/lib/kavcdpagt", strerror(errno));
    const auto restores = restores_to_show();
    fputs((as_json ? kept_json(*all, restores) : kept_page(*all, restores)).c_str(), stdout);
    return exit_ok;
}

void say(const std::string &line)
{
    fprintf(stderr, "qelc: %s\n", visible(line).c_str());
}

// False after a complaint.
bool print_partitions(const attached_snapshot &one, uint64_t number)
{
    std::vector<std::string> paths;
    for (const std::string &device : one.devices) {
        std::string why;
        const auto path = partition_device(device, number, &why);
        if (!path)
            return fail(exit_refused, one.record.name, why) == exit_ok;
        paths.push_back(*path);
    }
    for (const std::string &path : paths)
        printf("%s\n", path.c_str());
    return true;
}

void print_devices(const attached_snapshot &one)
{
    for (const std::string &device : one.devices)
        printf("%s\n", device.c_str());
    fflush(stdout);
    for (const std::string &device : one.devices)
        fputs(mount_hints(device).c_str(), stderr);
}

int attach(const verb_options &given, bool /*as_json*/)
{
    const std::string &name = given.snapshots.front();
    std::string why;
    const auto one = attach_snapshot(name, &why);
    if (!one)
        return fail(exit_refused, name, why);
    if (!given.partition)
        print_devices(*one);
    else if (!print_partitions(*one, *given.partition)) {
        if (!one->was_attached)
            detach_patiently(name, &why);
        return exit_refused;
    }
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

int remove(const verb_options &given, bool /*as_json*/)
{
    return for_each_name(given, remove_with_restores);
}

bool may_mount(const std::string &name)
{
    log_to_stderr(LOG_WARNING);
    return geteuid() == 0 || fail(exit_refused, name, "only root can mount") == exit_ok;
}

int mount(const verb_options &given, bool /*as_json*/)
{
    const std::string &name = given.snapshots.front();
    const auto points =
        may_mount(name) ? mount_snapshot({name, given.folder, given.partition}, say) : std::nullopt;
    for (const std::string &point : points.value_or(std::vector<std::string>{}))
        printf("%s\n", visible(point).c_str());
    return points ? exit_ok : exit_refused;
}

int unmount(const verb_options &given, bool /*as_json*/)
{
    const std::string &name = given.snapshots.front();
    return may_mount(name) && unmount_snapshot(name, say) ? exit_ok : exit_refused;
}

constexpr verb table[] = {
    {.name = "snapshots",
     .usage = "[--disk GUID | --group NAME]\n"
              "       qelc snapshots (mount | umount | restore | attach | detach | remove) NAME...",
     .description = "show the snapshots that are kept on this host",
     .note = "It looks at what is there now; a snapshot whose data is not there is \"gone\".\n",
     .add_options = add_disk_or_group,
     .run_here = list_all},
    {.name = "snapshots attach",
     .usage = "NAME [--partition N]",
     .description = "make read-only block devices of a snapshot",
     .note = "Prints the path of each, and on standard error how to mount what is on it; with\n"
             "--partition the path of that partition, and nothing else.\n",
     .add_options = add_attach_options,
     .run_here = attach},
    {.name = "snapshots detach",
     .usage = "NAME",
     .description = "end the block devices of a snapshot",
     .add_options = add_snapshot_name,
     .run_here = detach},
    {.name = "snapshots mount",
     .usage = "NAME DIR [--partition N]",
     .description = "attach a snapshot and mount its file system",
     .note = "Read-only, and without a look at the journal: what was only in that at the moment\n"
             "of the snapshot is not seen. The disks of a group become folders in DIR. Without\n"
             "--partition there must be one file system only. Prints where it is mounted.\n",
     .add_options = add_mount_options,
     .run_here = mount},
    {.name = "snapshots umount",
     .usage = "NAME",
     .description = "unmount a snapshot and detach it",
     .add_options = add_snapshot_name,
     .run_here = unmount},
    {.name = "snapshots restore",
     .usage = "NAME [--to DISK] [--yes] [--no-snapshot]",
     .description = "overwrite a disk with a snapshot",
     .note = "Only what differs is written; the disk keeps its signature. A snapshot of its\n"
             "present state is taken first. Without --to, and for a group, each disk gets its\n"
             "own state back. If it is ended in the middle, the same command goes on.\n",
     .add_options = add_restore_options,
     .run_here = restore},
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
