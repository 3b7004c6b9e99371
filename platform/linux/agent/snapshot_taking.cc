#include "platform/linux/agent/snapshot_taking.h"

#include "platform/linux/agent/journal.h"
#include "platform/linux/agent/keepers.h"
#include "platform/linux/agent/restores.h"
#include "platform/linux/agent/snapshot_list.h"
#include "platform/linux/devices/scsi_guid.h"
#include "platform/linux/host/boundary.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/state/text.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr unsigned most_of_one_second = 100;
constexpr size_t longest_name_of_source = 40;

// TEXT as a part of a name that every shell, volume group and file system takes as it is.
std::string plain_name(std::string text)
{
    text.resize(std::min(text.size(), longest_name_of_source));
    for (char &one : text) {
        if (!isascii(one) || !isalnum(static_cast<unsigned char>(one)))
            one = '_';
    }
    return text;
}

// Gives the snapshot a name that no other one has, now or while it is being taken.
bool take_name(const std::string &source, snapshot_plan *plan, std::string *why)
{
    plan->record.time = time_now();
    std::string first = plan->record.time + "-" + plain_name(source);
    std::ranges::replace(first, ':', '-');
    const auto known = load_snapshots();
    for (unsigned number = 1; known && number <= most_of_one_second; number++) {
        plan->record.name = first + (number == 1 ? "" : "-" + std::to_string(number));
        if (std::ranges::find(*known, plan->record.name, &snapshot::name) != known->end())
            continue;
        plan->lock = try_lock_snapshot(plan->record.name);
        if (plan->lock.is_open())
            return true;
    }
    *why = known ? "there is no free name for the snapshot" : "the records of snapshots cannot be read";
    return false;
}

// In bytes; "" if it is not known.
std::string size_of(const std::string &disk)
{
    const auto sectors = read_number("/sys/block/" + disk_name_of(disk) + "/size");
    return sectors ? std::to_string(*sectors * 512) : "";
}

// A snapshot of a disk that is half restored is not what one takes it for.
std::string note_of_restores(const std::vector<marked_device> &mirrors)
{
    std::string note;
    for (const restore_record &restore : load_restores().value_or(std::vector<restore_record>{})) {
        if (std::ranges::find(mirrors, restore.disk, &marked_device::source) != mirrors.end())
            note = "taken before a restore of " + restore.snapshot + " was finished";
    }
    return note;
}

// True for a mirror whose snapshots the storage system takes.
bool is_kept_by_storage(const marked_device &mirror)
{
    const std::string folder = "/sys/block/" + disk_name_of(mirror.path) + "/device/";
    const auto vendor = read_attribute(folder + "vendor"), model = read_attribute(folder + "model");
    return vendor && model && is_storage_volume(vendor->c_str(), model->c_str());
}

// A place goes into records, tables and JSON, so it is text.
bool is_place(const std::string &text)
{
    return !text.empty() &&
           std::ranges::none_of(text, [](char one) { return iscntrl(static_cast<unsigned char>(one)) != 0; });
}

// The first keeper that says so keeps the mirror. False with the reason in WHY.
bool find_keeper_for(const std::vector<keeper> &keepers, const snapshot_plan &plan, snapshot_member *member,
                     std::string *why)
{
    *why = keepers.empty() ? "there is no keeper" : "no keeper knows how";
    for (const keeper &one : keepers) {
        const keeper_answer answer = ask_keeper(one, keeper_verb::probe, plan.record, *member, plan.lock);
        if (answer.is_done && is_place(answer.output)) {
            member->keeper = one.name;
            member->place = answer.output;
            return true;
        }
        if (!answer.is_not_mine)
            *why = answer.is_done ? "keeper " + escaped(one.name) + " says no place" : answer.why;
    }
    return false;
}

bool is_kept(const snapshot_member &member, std::string *why)
{
    const auto kept = look_at_places(member.keeper, {member.place}, false, why);
    if (!kept)
        return false;
    *why = "keeper " + escaped(member.keeper) + " says that it kept " + escaped(member.mirror) +
           ", but has nothing at " + escaped(member.place);
    return kept->contains(member.place);
}

} // namespace

std::optional<snapshot_plan> plan_snapshot(const std::string &group,
                                           const std::vector<marked_device> &mirrors, std::string *why)
{
    snapshot_plan plan;
    plan.record.group = group;
    plan.record.note = note_of_restores(mirrors);
    const std::string source = group.empty() ? disk_name_of(mirrors.front().source_path) : group;
    const auto keepers = list_keepers(why);
    if (!keepers || !take_name(source, &plan, why))
        return std::nullopt;
    for (const marked_device &mirror : mirrors) {
        snapshot_member member{mirror.guid, mirror.source, mirror.path, "", "", size_of(mirror.source_path)};
        std::string obstacle;
        if (is_kept_by_storage(mirror))
            continue;
        if (find_keeper_for(*keepers, plan, &member, &obstacle))
            plan.record.members.push_back(std::move(member));
        else
            plan.unkept.push_back(escaped(mirror.guid) + " (" + escaped(mirror.path) + "): " + obstacle);
    }
    return plan;
}

bool keep_members(snapshot_plan *plan, std::string *why)
{
    const snapshot &record = plan->record;
    if (record.members.empty())
        return true;
    plan->is_begun = true;
    *why = "there can be no record of the snapshot";
    if (!store_snapshot(record))
        return false;
    for (const snapshot_member &member : record.members) {
        const keeper_answer answer = ask_keeper_of(keeper_verb::mark, record, member, plan->lock);
        if (!answer.is_done)
            *why = answer.why + " (" + escaped(member.mirror) + ")";
        if (!answer.is_done || !is_kept(member, why))
            return false;
    }
    return true;
}

bool complete_snapshot(snapshot_plan *plan, std::string *why)
{
    if (plan->record.members.empty())
        return true;
    plan->record.is_complete = true;
    *why = "there can be no record of the snapshot";
    return store_snapshot(plan->record);
}

void drop_snapshot(const snapshot &record, const unique_fd &lock, std::string *why)
{
    bool is_undone = true;
    for (auto member = record.members.rbegin(); member != record.members.rend(); ++member) {
        const bool went = end_at_exception("The undoing of a snapshot", [&] {
            const keeper_answer answer = ask_keeper_of(keeper_verb::undo, record, *member, lock);
            is_undone = is_undone && answer.is_done;
            if (!answer.is_done)
                *why += "; not undone: " + answer.why;
        });
        is_undone = is_undone && went;
    }
    if (is_undone)
        end_at_exception("The undoing of a snapshot", [&] { forget_snapshot(record.name); });
}

void drop_unfinished(const std::vector<std::string> &mirrors)
{
    for (const snapshot &one : load_snapshots().value_or(std::vector<snapshot>{})) {
        const bool is_concerned = std::ranges::any_of(one.members, [&](const snapshot_member &member) {
            return std::ranges::find(mirrors, member.mirror) != mirrors.end();
        });
        const unique_fd lock = is_concerned && !one.is_complete ? try_lock_snapshot(one.name) : unique_fd();
        if (!lock.is_open())
            continue;
        std::string why;
        drop_snapshot(one, lock, &why);
        log_warning("Snapshot %s was not finished%s", one.name.c_str(),
                    why.empty() ? "; what was there of it is removed" : why.c_str());
    }
}
