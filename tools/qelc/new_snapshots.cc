#include "tools/qelc/new_snapshots.h"

#include "platform/linux/agent/snapshot_acts.h"
#include "platform/linux/agent/snapshots.h"
#include "tools/qelc/ask.h"

#include <algorithm>
#include <cstdio>

namespace {
bool is_of(const snapshot &one, const verb_options &given)
{
    if (!given.group.empty())
        return one.group == given.group;
    const auto is_disk = [&](const snapshot_member &member) { return member.source == given.disk; };
    return one.group.empty() && std::ranges::any_of(one.members, is_disk);
}
} // namespace

new_snapshots::new_snapshots(bool is_wanted)
{
    const auto all = is_wanted ? load_snapshots() : std::nullopt;
    for (const snapshot &one : all.value_or(std::vector<snapshot>{}))
        former_.insert(one.name);
}

int new_snapshots::tell(const verb_options &given, bool as_json) const
{
    std::string name, why = "no keeper keeps this snapshot, so it has no record";
    for (const snapshot &one : load_snapshots().value_or(std::vector<snapshot>{})) {
        if (one.is_complete && !former_.contains(one.name) && is_of(one, given))
            name = one.name;
    }
    if (!name.empty())
        fprintf(as_json ? stderr : stdout, "%s\n", name.c_str());
    if (given.note.empty() || (!name.empty() && note_snapshot(name, given.note, &why)))
        return exit_ok;
    return fail(exit_refused, "note", why);
}
