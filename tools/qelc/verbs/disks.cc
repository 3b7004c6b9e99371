// The verb that shows the disks of a host.
#include "tools/qelc/views/disks.h"

#include "platform/linux/disks/host_disks.h"
#include "protocol/commands.h"
#include "tools/qelc/verbs/families.h"
#include "tools/snapshots/contents.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace {
// As far as this host can read the disks of its daemon.
void add_labels(std::vector<disk_view> &disks)
{
    std::string why;
    for (disk_view &disk : disks) {
        const auto facts = read_disk(disk.name);
        const auto contents = facts ? contents_of(facts->path, &why) : std::nullopt;
        for (const content &one : contents.value_or(std::vector<content>{})) {
            const auto part = std::ranges::find(facts->partitions, one.partition, &partition_facts::number);
            const auto shown = part == facts->partitions.end()
                                   ? disk.partitions.end()
                                   : std::ranges::find(disk.partitions, part->name, &partition_view::name);
            if (shown != disk.partitions.end())
                shown->label = one.label;
        }
    }
}

void add_roles(host &at, std::vector<disk_view> &disks)
{
    for (disk_view &disk : disks) {
        for (const mirror_view &mirror : at.view().mirrors) {
            if (mirror.guids.source == disk.guid)
                disk.role = "mirrored to " + at.name_of(mirror.guids.mirror);
            else if (mirror.guids.mirror == disk.guid)
                disk.role = "mirror of " + mirror.disk;
        }
    }
}

outcome show_disks(host &at, const verb_options &given)
{
    if (given.all && !at.is_local())
        throw verb_end{exit_usage, "--all looks at the disks of this host: --host does not go with it",
                       "qelc help disks shows its options"};
    std::vector<disk_view> disks = at.view().disks;
    add_roles(at, disks);
    if (at.is_local())
        add_labels(disks);
    const auto left_out = given.all ? left_out_disks(at) : std::vector<left_out_disk>{};
    return page_outcome(disks_page(disks, left_out), disk_records(disks, left_out));
}

constexpr verb table[] = {
    {.name = "disks",
     .usage = "[--all]",
     .description = "show the disks and their GUIDs",
     .note = "On a terminal GUIDs are cut to what tells them apart, unless --wide is given.\n",
     .code = command::get_client_info,
     .add_options = add_disks_options,
     .act = show_disks,
     .only_shows = true},
};
} // namespace

std::span<const verb> disk_verbs()
{
    return table;
}
