#include "tools/qelc/new_snapshots.h"

#include "platform/linux/agent/snapshot_acts.h"
#include "platform/linux/agent/snapshots.h"

#include <algorithm>

namespace {
bool is_of(const snapshot &one, const snapshot_source &source)
{
    if (source.is_group)
        return one.group == source.name;
    const auto is_disk = [&](const snapshot_member &member) { return member.source == source.name; };
    return one.group.empty() && std::ranges::any_of(one.members, is_disk);
}
} // namespace

new_snapshots::new_snapshots(bool is_wanted)
{
    const auto all = is_wanted ? load_snapshots() : std::nullopt;
    for (const snapshot &one : all.value_or(std::vector<snapshot>{}))
        former_.insert(one.name);
}

std::string new_snapshots::find(const snapshot_source &source) const
{
    std::string name;
    for (const snapshot &one : load_snapshots().value_or(std::vector<snapshot>{})) {
        if (one.is_complete && !former_.contains(one.name) && is_of(one, source))
            name = one.name;
    }
    return name;
}

outcome new_snapshots::name_and_note(const snapshot_source &source, const std::string &note,
                                     verb_item of_source) const
{
    const std::string name = find(source);
    of_source.text = "a snapshot was taken; no keeper of this host has it";
    std::vector<verb_item> items = {name.empty() ? of_source : verb_item{"snapshot", name}};
    std::string why = "there is no record that could have a note";
    if (!note.empty() && (name.empty() || !note_snapshot(name, note, &why)))
        items.push_back({"snapshot", "note", "", exit_refused, why});
    return outcome_of(std::move(items), "");
}
