#include "platform/linux/agent/snapshots.h"

#include "platform/linux/state/folders.h"
#include "platform/linux/state/lock.h"

#include <algorithm>
#include <string_view>
#include <tuple>

namespace {

constexpr std::pair<const char *, std::string snapshot_member::*> member_texts[] = {
    {"mirror", &snapshot_member::mirror}, // begins a member
    {"source", &snapshot_member::source}, {"device", &snapshot_member::device},
    {"keeper", &snapshot_member::keeper}, {"place", &snapshot_member::place},
    {"size", &snapshot_member::size},
};

constexpr std::pair<const char *, std::string snapshot::*> texts[] = {
    {"name", &snapshot::name}, // the key comes first
    {"time", &snapshot::time},
    {"group", &snapshot::group},
    {"note", &snapshot::note},
};

record_fields fields_of(const snapshot &one)
{
    record_fields fields;
    for (const auto &[key, text] : texts)
        fields.emplace_back(key, one.*text);
    fields.emplace_back("complete", one.is_complete ? "yes" : "no");
    for (const snapshot_member &member : one.members) {
        for (const auto &[key, text] : member_texts)
            fields.emplace_back(key, member.*text);
    }
    return fields;
}

snapshot snapshot_of(const record_fields &fields)
{
    snapshot one;
    for (const auto &[key, value] : fields) {
        if (key == member_texts[0].first)
            one.members.emplace_back();
        for (const auto &[name, text] : texts) {
            if (key == name)
                one.*text = value;
        }
        for (const auto &[name, text] : member_texts) {
            if (key == name && !one.members.empty())
                one.members.back().*text = value;
        }
        if (key == "complete")
            one.is_complete = value == "yes";
    }
    return one;
}

// A field that is unknown, duplicated or out of order does not survive the conversion and back.
bool is_snapshot(const record_fields &fields)
{
    return fields_of(snapshot_of(fields)) == fields;
}

// Of two of the same second, the later one has a larger number at the end of its name.
auto age_of(const snapshot &one)
{
    return std::tuple(std::string_view(one.time), one.name.size(), std::string_view(one.name));
}

constexpr record_kind kept_snapshot = {kavcdpagt, "snapshot", is_snapshot};

} // namespace

std::string whose(const snapshot &one)
{
    return !one.group.empty() ? one.group : one.members.empty() ? "" : one.members.front().source;
}

bool store_snapshot(const snapshot &one)
{
    return store_record(kept_snapshot, fields_of(one));
}

bool forget_snapshot(const std::string &name)
{
    return remove_record(kept_snapshot, name) >= 0;
}

std::optional<std::vector<snapshot>> load_snapshots(bad_files bad)
{
    const auto records = load_records(kept_snapshot, bad);
    if (!records)
        return std::nullopt;
    std::vector<snapshot> all;
    for (const record_fields &fields : *records)
        all.push_back(snapshot_of(fields));
    std::ranges::sort(all, {}, age_of);
    return all;
}

std::optional<snapshot> load_snapshot(const std::string &name)
{
    auto all = load_snapshots();
    if (!all)
        return std::nullopt;
    const auto found = std::ranges::find(*all, name, &snapshot::name);
    return found == all->end() ? std::nullopt : std::optional(std::move(*found));
}

unique_fd try_lock_snapshot(const std::string &name)
{
    return try_lock_places(kavcdpagt, {place_of_name("snapshot " + name)});
}
