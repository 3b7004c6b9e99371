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

bool attach_member(const snapshot &of, const snapshot_member &member, std::string *device, std::string *why)
{
    const keeper_answer answer = ask_keeper_of(keeper_verb::attach, of, member);
    *device = answer.output;
    *why = answer.is_done ? "keeper " + member.keeper + ", attach: it names no block device" : answer.why;
    return answer.is_done && is_block_device(*device);
}

// Undoes an attachment that failed in the middle.
void detach_members(const snapshot &of, size_t count)
{
    for (size_t i = count; i > 0; i--)
        ask_keeper_of(keeper_verb::detach, of, of.members[i - 1]);
}

// Asks each keeper of a member; goes on after a failure.
bool ask_all_members(keeper_verb verb, const snapshot &of, std::string *why)
{
    bool is_done = true;
    for (const snapshot_member &member : of.members) {
        const keeper_answer answer = ask_keeper_of(verb, of, member);
        if (!answer.is_done)
            *why = (is_done ? "" : *why + "; ") + answer.why;
        is_done = is_done && answer.is_done;
    }
    return is_done;
}

} // namespace

bool attach_snapshot(const std::string &name, std::vector<std::string> *devices, std::string *why)
{
    const auto one = take_snapshot(name, why);
    if (!one)
        return false;
    const snapshot &record = one->found.record;
    const snapshot_state state = one->found.state;
    if (state != snapshot_state::ok && state != snapshot_state::attached) {
        *why = state == snapshot_state::gone      ? "its data is gone"
               : state == snapshot_state::unknown ? one->found.why
                                                  : "it was not finished";
        return false;
    }
    for (const snapshot_member &member : record.members) {
        devices->emplace_back();
        if (!attach_member(record, member, &devices->back(), why)) {
            if (state == snapshot_state::ok)
                detach_members(record, devices->size());
            return false;
        }
    }
    return true;
}

bool detach_snapshot(const std::string &name, std::string *why)
{
    const auto one = take_snapshot(name, why);
    return one && ask_all_members(keeper_verb::detach, one->found.record, why);
}

bool remove_snapshot(const std::string &name, std::string *why)
{
    const auto one = take_snapshot(name, why);
    if (!one)
        return false;
    if (!one->found.devices.empty()) {
        *why = "it is attached as " + one->found.devices.front();
        return false;
    }
    const bool is_complete = one->found.record.is_complete;
    if (!ask_all_members(is_complete ? keeper_verb::remove : keeper_verb::undo, one->found.record, why))
        return false;
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
