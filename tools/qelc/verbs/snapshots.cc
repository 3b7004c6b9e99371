// Verbs for snapshots and their schedules.
#include "client/inventory_records.h"
#include "protocol/commands.h"
#include "tools/qelc/bodies/snapshot.h"
#include "tools/qelc/countdown.h"
#include "tools/qelc/new_snapshots.h"
#include "tools/qelc/points_in_time.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/schedules.h"

namespace {
constexpr char source_usage[] = "(--disk DISK | --group NAME)";

std::string source_complaint(const verb_options &given)
{
    return given.disk.empty() && given.group.empty() ? "--disk or --group is required" : "";
}

std::string schedule_complaint(const verb_options &given)
{
    std::string complaint = source_complaint(given);
    if (complaint.empty() && !given.off && given.every == 0)
        complaint = "--start and --every are required, or --off";
    return complaint;
}

optional_text snapshot_body(const verb_options &given)
{
    return snapshot_document(source_of(given, given.disk));
}

optional_text volumes_body(const verb_options &given)
{
    return snapshot_volumes_document(given.disks);
}

optional_text schedule_body(const verb_options &given)
{
    return schedule_document(source_of(given, given.disk), times_of(given));
}

optional_text source_body(const verb_options &given)
{
    return snapshot_source_document(source_of(given, given.disk));
}

// The host sleeps for 40 seconds, whatever the number of volumes. The rest is for ten searches on a host with
// many disks.
unsigned seconds_for_volumes(const verb_options & /*given*/)
{
    return 300;
}

outcome planned(verb_item item, const std::string &text)
{
    item.text = text;
    return {.items = {std::move(item)}, .is_dry_run = true};
}

verb_item item_of(const snapshot_source &source, const std::string &name)
{
    return {source.is_group ? "group" : "disk", name, source.is_group ? "" : source.name};
}

// --- Snapshots ---------------------------------------------------------------------------------------

void require_mirror(host &at, const snapshot_source &source, const std::string &name)
{
    if (!source.is_group && !at.mirror_of(source.name))
        throw verb_end{exit_not_found, name + " is not protected",
                       "qelc mirrors shows which disks are protected"};
    if (!source.is_group)
        return;
    const std::vector<group_view> groups = at.groups();
    if (require_group(groups, name).disks.empty())
        throw verb_end{exit_refused, "group " + name + " has no disks", "qelc group add " + name + " DISK"};
}

// What stands in the way, as far as the report shows it.
[[noreturn]] void explain_refusal(host &at, const snapshot_source &source, const request &reply)
{
    std::vector<std::string> disks = {source.name};
    if (source.is_group) {
        const std::vector<group_view> groups = at.groups();
        disks = require_group(groups, source.name).disks;
    }
    at.look_again();
    for (const std::string &guid : disks) {
        const mirror_view *mirror = at.mirror_of(guid);
        if (!mirror)
            throw verb_end{exit_refused, at.name_of(guid) + " is not protected",
                           "qelc mirrors shows what is"};
        if (mirror->state != backup_synchronised)
            throw verb_end{exit_refused,
                           "a disk is not synchronised yet: " + mirror->disk + " is " +
                               mirror_state_text(*mirror) + ", " + std::to_string(mirror->percent) + " %",
                           way_to_level(*mirror)};
    }
    require_success(reply, "is there a keeper for the mirror? " + std::string(see_log));
    throw verb_end{exit_refused, meaning_of(reply.recv_head.ret), see_log};
}

outcome take_snapshot(host &at, const verb_options &given)
{
    std::string name;
    const snapshot_source source = source_meant(at, given, name);
    require_mirror(at, source, name);
    verb_item item = item_of(source, name);
    if (given.dry_run)
        return planned(item, "a snapshot is taken");
    const new_snapshots taken(at.is_local());
    const std::unique_ptr<request> reply = at.ask(command::create_snapshot, snapshot_document(source));
    if (reply->recv_head.ret != status_ok)
        explain_refusal(at, source, *reply);
    return taken.name_and_note(source, given.note, std::move(item));
}

outcome wait_for_restored(host &at, const verb_options &given)
{
    at.require_adopted();
    {
        constexpr unsigned seconds = 40;
        countdown patience("the daemon looks for the volumes", seconds);
        at.ask(command::snap_restore, snapshot_volumes_document(given.disks), [&] { patience.show(); });
    }
    at.look_again();
    std::vector<verb_item> items;
    for (const std::string &guid : given.disks) {
        verb_item item{"volume", guid, "", exit_ok, "is there: " + at.name_of(guid)};
        if (!at.is_known(guid))
            item.refuse(exit_not_found, "the host does not see it");
        items.push_back(std::move(item));
    }
    return outcome_of(std::move(items), "is it mapped to this host? " + std::string(see_log));
}

// --- Schedules ---------------------------------------------------------------------------------------

std::string times_text(const snapshot_times &times)
{
    return "every " + interval_text(times.interval) + " from " + local_time_text(times.start);
}

// The schedule that is there; throws verb_end if there is none.
snapshot_times require_schedule(host &at, const snapshot_source &source, const std::string &name)
{
    const auto times = at.schedule_of(source);
    if (!times && !source.is_group)
        throw verb_end{exit_not_found, name + " is not protected, and has no schedule",
                       "qelc mirrors shows which disks are protected"};
    if (!times || (times->start == 0 && times->interval == 0))
        throw verb_end{exit_not_found, name + " has no schedule",
                       std::string("qelc schedule set ") + (source.is_group ? "--group " : "--disk ") + name +
                           " --start T --every INTERVAL"};
    return *times;
}

outcome set_schedule(host &at, const verb_options &given)
{
    std::string name;
    const snapshot_source source = source_meant(at, given, name);
    const snapshot_times wanted = times_of(given);
    if (wanted.interval == 0)
        require_schedule(at, source, name);
    else if (!source.is_group && !at.mirror_of(source.name))
        throw verb_end{exit_not_found, name + " is not protected",
                       "qelc mirrors shows which disks are protected"};
    if (given.dry_run)
        return planned(item_of(source, name), wanted.interval == 0 ? "no schedule" : times_text(wanted));
    require_success(*at.ask(command::set_cdp_schedule, schedule_document(source, wanted)));
    if (!source.is_group)
        at.look_again();
    return outcome_of({schedule_item(at, source, wanted)}, see_log);
}

// Before it is shown: the daemon has an answer also for what has none.
void find_schedule(host &at, verb_options &given)
{
    std::string name;
    const snapshot_source source = source_meant(at, given, name);
    require_schedule(at, source, name);
    if (!source.is_group)
        given.disk = source.name;
}

constexpr verb table[] = {
    {.name = "snapshot",
     .usage = "(--disk DISK | --group NAME) [--note TEXT] [--dry-run]",
     .description = "take a snapshot of a disk or a group now",
     .note = "Prints the name of the snapshot, on the host itself and if a keeper keeps it.\n",
     .code = command::create_snapshot,
     .add_options = add_snapshot_options,
     .complaint = source_complaint,
     .body = snapshot_body,
     .act = take_snapshot},
    {.name = "restore-wait",
     .usage = "GUID...",
     .description = "wait for restored snapshot volumes",
     .note = "The host waits for about 40 seconds.\n",
     .code = command::snap_restore,
     .add_options = add_volumes,
     .body = volumes_body,
     .act = wait_for_restored,
     .seconds = seconds_for_volumes},
    {.name = "schedule set",
     .usage = "(--disk DISK | --group NAME)\n"
              "            (--start T --every INTERVAL | --off) [--dry-run]",
     .description = "set the schedule of a disk or a group",
     .code = command::set_cdp_schedule,
     .add_options = add_schedule_options,
     .complaint = schedule_complaint,
     .body = schedule_body,
     .act = set_schedule},
    {.name = "schedule get",
     .usage = source_usage,
     .description = "show the schedule of a disk or a group",
     .code = command::kav_get_cdp_schedule,
     .add_options = add_disk_or_group,
     .complaint = source_complaint,
     .prepare = find_schedule,
     .body = source_body,
     .view = schedule_page,
     .json = schedule_json},
    // Not kav_del_cdp_schedule: for a disk without a schedule, that command would leave the daemon's client
    // record locked for good.
    {.name = "schedule delete",
     .usage = "(--disk DISK | --group NAME) [--dry-run]",
     .description = "delete the schedule of a disk or a group",
     .code = command::set_cdp_schedule,
     .add_options = add_disk_or_group_to_change,
     .complaint = source_complaint,
     .body = schedule_body,
     .act = set_schedule},
};
} // namespace

std::span<const verb> snapshot_verbs()
{
    return table;
}

snapshot_times times_of(const verb_options &given)
{
    return {parse_point_in_time(given.start).value_or(0), given.every};
}

snapshot_source source_of(const verb_options &given, const std::string &disk)
{
    return given.group.empty() ? snapshot_source{false, disk} : snapshot_source{true, given.group};
}

snapshot_source source_meant(host &at, const verb_options &given, std::string &name)
{
    if (!given.group.empty()) {
        name = given.group;
        require_group(at.groups(), name);
        return {true, name};
    }
    const named_disk disk = at.disk(given.disk);
    name = disk.name;
    return {false, disk.guid};
}

verb_item schedule_item(host &at, const snapshot_source &source, const snapshot_times &wanted)
{
    verb_item item = item_of(source, source.is_group ? source.name : at.name_of(source.name));
    const snapshot_times found = at.schedule_of(source).value_or(snapshot_times{});
    if (found.start != wanted.start || found.interval != wanted.interval)
        item.refuse(exit_refused, found.interval == 0 ? "it has no schedule"
                                                      : "its schedule is another: " + times_text(found));
    else
        item.text = found.interval == 0 ? "no more snapshots are taken" : "snapshots " + times_text(found);
    return item;
}
