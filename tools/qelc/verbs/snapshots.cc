// Verbs for snapshots and their schedules.
#include "protocol/commands.h"
#include "tools/qelc/bodies/snapshot.h"
#include "tools/qelc/points_in_time.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/schedules.h"

namespace {
constexpr char source_usage[] = "(--disk GUID | --group NAME)";

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

constexpr verb table[] = {
    {.name = "snapshot",
     .usage = "(--disk GUID | --group NAME) [--note TEXT]",
     .description = "take a snapshot of a disk or a group now",
     .note = "The host reports success even for a group that it does not know; check with\n"
             "qelc group list.\n",
     .code = command::create_snapshot,
     .add_options = add_snapshot_options,
     .complaint = source_complaint,
     .body = snapshot_body,
     .takes_snapshot = true},
    {.name = "restore-wait",
     .usage = "GUID...",
     .description = "wait for restored snapshot volumes",
     .note = "The host waits for about 40 seconds.\n",
     .code = command::snap_restore,
     .add_options = add_volumes,
     .body = volumes_body,
     .seconds = seconds_for_volumes},
    {.name = "schedule set",
     .usage = "(--disk GUID | --group NAME)\n"
              "            (--start T --every SECONDS | --off)",
     .description = "set the schedule of a disk or a group",
     .code = command::set_cdp_schedule,
     .add_options = add_schedule_options,
     .complaint = schedule_complaint,
     .body = schedule_body},
    {.name = "schedule get",
     .usage = source_usage,
     .description = "show the schedule of a disk or a group",
     .code = command::kav_get_cdp_schedule,
     .add_options = add_disk_or_group,
     .complaint = source_complaint,
     .body = source_body,
     .view = schedule_page,
     .json = schedule_json},
    // Not kav_del_cdp_schedule: for a disk without a schedule, that command would leave the daemon's client
    // record locked for good.
    {.name = "schedule delete",
     .usage = source_usage,
     .description = "delete the schedule of a disk or a group",
     .code = command::set_cdp_schedule,
     .add_options = add_disk_or_group,
     .complaint = source_complaint,
     .body = schedule_body},
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
