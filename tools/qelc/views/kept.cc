#include "tools/qelc/views/kept.h"

#include "platform/linux/agent/limited_run.h"
#include "platform/linux/host/sysfs.h"
#include "tools/common/human_text.h"
#include "tools/common/text_table.h"
#include "tools/common/visible.h"
#include "tools/qelc/views/json_answer.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
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

std::string source_of(const snapshot &one)
{
    return !one.group.empty() ? one.group : one.members.empty() ? "-" : one.members.front().source;
}

json_object object_of(const listed_snapshot &one)
{
    json_object members = json_object::array();
    for (const snapshot_member &member : one.record.members)
        members.push_back({{"source", member.source},
                           {"mirror", member.mirror},
                           {"keeper", member.keeper},
                           {"place", member.place}});
    return {{"name", one.record.name},
            {"time", one.record.time},
            {"group", one.record.group},
            {"note", one.record.note},
            {"state", state_text(one)},
            {"why", one.why},
            {"size", one.size ? json_object(*one.size) : json_object()},
            {"devices", one.devices},
            {"members", members}};
}

std::string file_system_on(const std::string &device)
{
    const run_result found = run_limited({.words = {"blkid", "-p", "-o", "value", "-s", "TYPE", device}},
                                         {.time = std::chrono::seconds(10), .output = 100});
    return found.output.substr(0, found.output.find('\n'));
}

// Mounting read-only is not enough: a journal would be replayed, and a read-only device refuses that; XFS
// refuses a second file system of the same UUID.
std::string mount_options(const std::string &type)
{
    if (type == "xfs")
        return "ro,nouuid,norecovery";
    if (type == "ext3" || type == "ext4")
        return "ro,noload";
    return type == "btrfs" ? "ro,rescue=nologreplay" : "ro";
}

std::string hint_for(const std::string &device)
{
    const std::string type = file_system_on(device);
    if (type.empty() || type == "swap" || type == "crypto_LUKS" || type.ends_with("_member"))
        return "";
    const std::string hint = "mount -o " + mount_options(type) + " " + device + " FOLDER\n";
    // The kernel takes all devices of one UUID for parts of one file system.
    return type == "btrfs" ? hint + "(Btrfs: not while the original is mounted.)\n" : hint;
}
} // namespace

std::string kept_page(const std::vector<listed_snapshot> &all)
{
    text_table rows = {{"Name", "Time", "Disk or group", "Keeper", "Size", "State", "Note"}};
    std::string lines;
    for (const listed_snapshot &one : all) {
        rows.push_back({one.record.name, one.record.time, source_of(one.record), keepers_of(one.record),
                        one.size ? size_text(*one.size) : "-", state_text(one), one.record.note});
        if (one.state == snapshot_state::unknown)
            lines += "  " + visible(one.record.name) + ": " + visible(one.why) + "\n";
    }
    return align(rows) + lines;
}

std::string kept_json(const std::vector<listed_snapshot> &all)
{
    json_object list = json_object::array();
    for (const listed_snapshot &one : all)
        list.push_back(object_of(one));
    return json_object{{"snapshots", list}}.dump(-1, ' ', false, json_object::error_handler_t::replace) +
           "\n";
}

std::string mount_hints(const std::string &device)
{
    char real[PATH_MAX];
    const std::string disk = disk_name_of(realpath(device.c_str(), real) ? real : device);
    std::string hints = hint_for(device);
    for (const std::string &name : list_folder("/sys/block/" + disk).value_or(std::vector<std::string>{})) {
        if (read_attribute("/sys/block/" + disk + "/" + name + "/partition"))
            hints += hint_for("/dev/" + name);
    }
    return hints;
}
