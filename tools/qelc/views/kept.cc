#include "tools/qelc/views/kept.h"

#include "tools/common/human_text.h"
#include "tools/common/text_table.h"
#include "tools/common/visible.h"
#include "tools/qelc/points_in_time.h"
#include "tools/snapshots/attachment.h"
#include "tools/snapshots/contents.h"

#include <nlohmann/json.hpp>
#include <set>

namespace {
// In the order of snapshot_state.
constexpr const char *state_texts[] = {"ok", "attached", "unfinished", "gone", "unknown"};

const char *state_text(const listed_snapshot &one)
{
    return state_texts[static_cast<size_t>(one.state)];
}

std::string keepers_of(const snapshot &one)
{
    std::set<std::string> names;
    for (const snapshot_member &member : one.members)
        names.insert(member.keeper);
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

json_object text_or_null(const std::string &text)
{
    return text.empty() ? json_object() : json_object(text);
}

json_object members_of(const snapshot &one)
{
    json_object members = json_object::array();
    for (const snapshot_member &member : one.members)
        members.push_back({{"source", member.source},
                           {"mirror", member.mirror},
                           {"keeper", member.keeper},
                           {"place", member.place}});
    return members;
}

json_object restores_of(const snapshot &one, const std::vector<restore_view> &restores)
{
    json_object list = json_object::array();
    for (const restore_view &restore : restores) {
        if (restore.record.snapshot == one.name)
            list.push_back(
                {{"disk", restore.disk}, {"guid", restore.record.disk}, {"running", restore.is_running}});
    }
    return list;
}

std::string line_of(const restore_view &one)
{
    const std::string name = visible(one.record.snapshot), disk = visible(one.disk);
    if (one.is_running)
        return "  " + name + " is being restored to " + disk + "\n";
    return "  restoring " + name + " to " + disk +
           " was not finished; run it again: qelc snapshots restore " + name + " --to " + disk + "\n";
}

// A partition that the kernel does not show is found by its place.
std::string hint_for(const std::string &device, const content &one)
{
    std::string path = device, options = mount_options(one.type), why;
    if (one.partition != 0) {
        const auto node = partition_device(device, one.partition, &why);
        path = node.value_or(device);
        if (!node)
            options +=
                ",loop,offset=" + std::to_string(one.offset) + ",sizelimit=" + std::to_string(one.size);
    }
    const std::string hint = "mount -o " + options + " " + path + " FOLDER\n";
    // The kernel takes all devices of one UUID for parts of one file system.
    return one.type == "btrfs" ? hint + "(Btrfs: not while the original is mounted.)\n" : hint;
}
} // namespace

std::vector<restore_view> restores_to_show()
{
    std::vector<restore_view> all;
    for (const restore_record &one : load_restores().value_or(std::vector<restore_record>{}))
        all.push_back({one, disk_title(one.disk), is_restore_running(one.disk)});
    return all;
}

std::string owner_of(const snapshot &one, const std::map<std::string, std::string> &titles)
{
    const auto title = one.group.empty() ? titles.find(whose(one)) : titles.end();
    return title == titles.end() ? whose(one) : title->second;
}

std::string time_of(const snapshot &one)
{
    const auto point = parse_point_in_time(one.time);
    return point ? local_time_text(*point) : one.time;
}

std::string kept_page(const std::vector<listed_snapshot> &all, const std::vector<restore_view> &restores)
{
    text_table rows = {{"Name", "Time", "Disk or group", "Keeper", "Size", "State", "Note"}};
    std::string lines;
    const auto titles = all.empty() ? std::map<std::string, std::string>() : disk_titles();
    for (const listed_snapshot &one : all) {
        rows.push_back({one.record.name, time_of(one.record), owner_of(one.record, titles),
                        keepers_of(one.record), one.size ? size_text(*one.size) : "-", state_text(one),
                        one.record.note});
        if (one.state == snapshot_state::unknown)
            lines += "  " + visible(one.record.name) + ": " + visible(one.why) + "\n";
    }
    for (const restore_view &one : restores)
        lines += line_of(one);
    return (all.empty() ? "no snapshots\n" : align(rows)) + lines;
}

json_object kept_records(const std::vector<listed_snapshot> &all, const std::vector<restore_view> &restores)
{
    json_object list = json_object::array();
    for (const listed_snapshot &one : all)
        list.push_back({{"name", one.record.name},
                        {"time", one.record.time},
                        {"group", text_or_null(one.record.group)},
                        {"note", text_or_null(one.record.note)},
                        {"state", state_text(one)},
                        {"why", text_or_null(one.why)},
                        {"size", one.size ? json_object(*one.size) : json_object()},
                        {"devices", one.devices},
                        {"members", members_of(one.record)},
                        {"restores", restores_of(one.record, restores)}});
    return list;
}

std::string mount_hints(const std::string &device)
{
    std::string hints, why;
    for (const content &one : contents_of(device, &why).value_or(std::vector<content>{})) {
        if (is_mountable(one))
            hints += hint_for(device, one);
    }
    return hints;
}
