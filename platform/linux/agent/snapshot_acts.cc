#include "platform/linux/agent/snapshot_acts.h"

#include "platform/linux/agent/keepers.h"
#include "platform/linux/agent/snapshot_list.h"
#include "platform/linux/host/boundary.h"

#include <sys/stat.h>

#include <algorithm>

namespace {

struct locked_snapshot {
    unique_fd lock;
    listed_snapshot found;
};

// The snapshot, which nobody else changes meanwhile. Null with the reason in WHY.
std::optional<locked_snapshot> take_snapshot(const std::string &name, std::string *why)
{
    locked_snapshot taken;
    taken.lock = try_lock_snapshot(name);
    if (!taken.lock.is_open() && errno != ENOENT) {
        *why = errno == EAGAIN ? "another process is busy with it" : strerror(errno);
        return std::nullopt;
    }
    auto found = look_at_snapshot(name, why);
    if (!found)
        return std::nullopt;
    taken.found = std::move(*found);
    return taken;
}

bool is_block_device(const std::string &path)
{
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 && S_ISBLK(facts.st_mode);
}

bool attach_member(const locked_snapshot &of, const snapshot_member &member, std::string *device,
                   std::string *why)
{
    const keeper_answer answer = ask_keeper_of(keeper_verb::attach, of.found.record, member, of.lock);
    *device = answer.output;
    *why = answer.is_done ? "keeper " + member.keeper + ", attach: it names no block device" : answer.why;
    return answer.is_done && is_block_device(*device);
}

// The list has the device of each member that is attached, in their order.
bool are_all_attached(const listed_snapshot &found)
{
    return found.devices.size() == found.record.members.size() &&
           std::ranges::all_of(found.devices, is_block_device);
}

// Undoes an attachment that failed in the middle.
void detach_members(const locked_snapshot &of, size_t count)
{
    for (size_t i = count; i > 0; i--)
        ask_keeper_of(keeper_verb::detach, of.found.record, of.found.record.members[i - 1], of.lock);
}

// Asks each keeper of a member; goes on after a failure.
bool ask_all_members(keeper_verb verb, const locked_snapshot &of, std::string *why)
{
    bool is_done = true;
    for (const snapshot_member &member : of.found.record.members) {
        const keeper_answer answer = ask_keeper_of(verb, of.found.record, member, of.lock);
        if (!answer.is_done)
            *why = (is_done ? "" : *why + "; ") + answer.why;
        is_done = is_done && answer.is_done;
    }
    return is_done;
}

bool is_all_there(const snapshot &of)
{
    return std::ranges::all_of(of.members, [](const snapshot_member &member) {
        std::string why;
        const auto found = look_at_places(member.keeper, {member.place}, false, &why);
        return found && found->contains(member.place);
    });
}

// From now on the snapshot counts as none, so that a process that is killed in the middle of removing it
// leaves none that seems whole; the next mark of its mirrors, or another removal, ends that.
bool give_up(snapshot *record, std::string *why)
{
    record->is_complete = false;
    *why = "its record cannot be written";
    return store_snapshot(*record);
}

} // namespace

std::optional<attached_snapshot> attach_snapshot(const std::string &name, std::string *why)
{
    const auto one = take_snapshot(name, why);
    if (!one)
        return std::nullopt;
    const snapshot_state state = one->found.state;
    if (state != snapshot_state::ok && state != snapshot_state::attached) {
        *why = state == snapshot_state::gone      ? "its data is gone"
               : state == snapshot_state::unknown ? one->found.why
                                                  : "it was not finished";
        return std::nullopt;
    }
    attached_snapshot attached{one->found.record, {}, state == snapshot_state::attached};
    if (are_all_attached(one->found)) {
        attached.devices = one->found.devices;
        return attached;
    }
    for (const snapshot_member &member : attached.record.members) {
        attached.devices.emplace_back();
        if (!attach_member(*one, member, &attached.devices.back(), why)) {
            if (!attached.was_attached)
                detach_members(*one, attached.devices.size());
            return std::nullopt;
        }
    }
    return attached;
}

bool detach_snapshot(const std::string &name, std::string *why)
{
    const auto one = take_snapshot(name, why);
    return one && ask_all_members(keeper_verb::detach, *one, why);
}

bool remove_snapshot(const std::string &name, std::string *why)
{
    auto one = take_snapshot(name, why);
    if (!one)
        return false;
    snapshot &record = one->found.record;
    const bool was_complete = record.is_complete;
    *why = one->found.devices.empty() ? one->found.why : "it is attached as " + one->found.devices.front();
    if (!why->empty() || (was_complete && !give_up(&record, why)))
        return false;
    if (!ask_all_members(was_complete ? keeper_verb::remove : keeper_verb::undo, *one, why)) {
        record.is_complete = was_complete && is_all_there(record);
        if (record.is_complete)
            store_snapshot(record);
        return false;
    }
    *why = "its record cannot be removed";
    return forget_snapshot(name);
}

bool note_snapshot(const std::string &name, const std::string &note, std::string *why)
{
    const auto one = take_snapshot(name, why);
    if (!one)
        return false;
    snapshot record = one->found.record;
    record.note = note;
    *why = "its record cannot be written";
    return store_snapshot(record);
}
