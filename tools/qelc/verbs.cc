#include "tools/qelc/verbs.h"

#include "tools/qelc/verbs/families.h"

#include <algorithm>

std::span<const verb_kind> verb_kinds()
{
    static constexpr verb_kind kinds[] = {
        {"snapshots", ""}, // is a verb as well, which describes it
        {"schedule", "schedules of snapshots"},
        {"group", "consistency groups"},
        {"db", "databases"},
        {"volume", "volumes of this host for mirrors"},
    };
    return kinds;
}

std::span<const std::span<const verb>> verb_families()
{
    static const std::span<const verb> families[] = {
        status_verbs(),   top_verbs(),      metrics_verbs(), events_verbs(), disk_verbs(),
        mirror_verbs(),   snapshot_verbs(), kept_verbs(),    prune_verbs(),  group_verbs(),
        database_verbs(), volume_verbs(),   host_verbs()};
    return families;
}

const verb *find_verb(const std::string &name)
{
    for (const std::span<const verb> family : verb_families()) {
        const auto found = std::ranges::find(family, name, &verb::name);
        if (found != family.end())
            return &*found;
    }
    return nullptr;
}
