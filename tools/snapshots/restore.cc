#include "tools/snapshots/restore.h"

#include "platform/linux/agent/restores.h"
#include "platform/linux/mirror/block_copy.h"
#include "platform/linux/state/mirror_hold.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace {
using std::chrono::steady_clock;
using target_list = std::vector<restore_target>;

bool is_stopped(const restore_partner &partner)
{
    return partner.stop && *partner.stop != 0;
}

// --- Before anything is written --------------------------------------------------------------------------

std::optional<target_list> open_targets(const attached_snapshot &one, const restore_wish &wish,
                                        std::string *why)
{
    *why = "the snapshot of a group goes back to the group's own disks, without --to";
    if (!wish.disk.empty() && one.devices.size() != 1)
        return std::nullopt;
    target_list targets;
    for (size_t i = 0; i < one.devices.size(); i++) {
        const std::string where = wish.disk.empty() ? one.record.members[i].source : wish.disk;
        auto target = open_target(one, i, where, why);
        if (!target) {
            *why = (wish.disk.empty() ? disk_title(where) : where) + ": " + *why;
            return std::nullopt;
        }
        targets.push_back(std::move(*target));
    }
    return targets;
}

// An earlier restore of this snapshot to this disk that was not finished.
const restore_record *begun(const std::vector<restore_record> &records, const std::string &snapshot,
                            const restore_target &target)
{
    const auto found = std::ranges::find(records, target.disk.guid, &restore_record::disk);
    return found != records.end() && found->snapshot == snapshot ? &*found : nullptr;
}

// False with the reason in WHY: then the restore does not take place.
bool save_present(const restore_target &target, const restore_partner &partner, std::string *why)
{
    const std::string &disk = target.disk.facts.name;
    if (target.mirror.empty()) {
        partner.say(disk + ": no snapshot of its present state is taken, as it has no mirror");
        return true;
    }
    if (partner.take_snapshot(target, why))
        return true;
    *why = "nothing was written, as no snapshot of the present state of " + disk +
           " could be taken: " + *why + ". --no-snapshot restores without one";
    return false;
}

bool save_all(const restore_wish &wish, const target_list &targets,
              const std::vector<restore_record> &records, const restore_partner &partner, std::string *why)
{
    for (const restore_target &target : targets) {
        if (begun(records, wish.name, target))
            partner.say(target.disk.facts.name + ": a restore that was not finished goes on");
        else if (wish.takes_snapshot && !save_present(target, partner, why))
            return false;
    }
    return true;
}

struct running_restore {
    attached_snapshot one;
    target_list targets;
    std::vector<restore_record> former; // restores that were not finished
};

// True if this restore, or the one that it goes on with, has attached the snapshot.
bool has_attached(const running_restore &running)
{
    if (!running.one.was_attached)
        return true;
    return std::ranges::any_of(running.targets, [&](const restore_target &target) {
        const restore_record *record = begun(running.former, running.one.record.name, target);
        return record && !record->was_attached;
    });
}

// False after log lines; what is remembered is then what was remembered before.
bool store_all(const running_restore &running)
{
    const std::string &name = running.one.record.name;
    const bool is_stored = std::ranges::all_of(running.targets, [&](const restore_target &target) {
        return store_restore({target.disk.guid, name, !has_attached(running)});
    });
    for (const restore_target &target : running.targets) {
        if (!is_stored && !begun(running.former, name, target))
            forget_restore(target.disk.guid);
    }
    return is_stored;
}

// --- Writing ---------------------------------------------------------------------------------------------

// While the disks are written to, their mirrors rest. So no snapshot is taken of a disk that is half
// restored, and a snapshot that has room for some changes of its mirror only is not lost in the middle. A
// copy that is busy with a mirror is waited for a moment; without the hold everything goes well, too, but for
// that.
unique_fd hold_mirrors(const target_list &targets)
{
    std::vector<std::string> guids;
    for (const restore_target &target : targets) {
        if (!target.mirror.empty())
            guids.push_back(target.mirror);
    }
    unique_fd hold;
    const auto end = steady_clock::now() + std::chrono::seconds(10);
    while (!guids.empty() && !hold.is_open() && steady_clock::now() < end) {
        hold = try_hold_mirrors(guids);
        if (!hold.is_open() && errno != EAGAIN)
            break;
        if (!hold.is_open())
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return hold;
}

std::string failure_text(const copy_result &result, const restore_target &target)
{
    const std::string place = " at byte " + std::to_string(result.failed_at) + ": " + strerror(result.error);
    switch (result.end) {
    case copy_end::stopped:
        return "it was stopped";
    case copy_end::source_failed:
        return "the snapshot (" + target.device + ") cannot be read" + place;
    case copy_end::mirror_failed:
        return "the disk cannot be written or read" + place;
    default:
        return strerror(result.error);
    }
}

// Returns what is wrong, "" for nothing. WRITTEN: bytes.
std::string write_disk(const restore_target &target, const restore_partner &partner, uint64_t *written)
{
    const unique_fd from(open(target.device.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC));
    if (!from.is_open())
        return target.device + ": " + strerror(errno);
    const auto go_on = [&](uint64_t position) {
        partner.progress(target, position);
        return !is_stopped(partner);
    };
    const copy_result result = copy_blocks({.source = from.get(),
                                            .mirror = target.fd.get(),
                                            .end = target.size,
                                            .compare = true,
                                            .own_signature = target.signature,
                                            .go_on = go_on});
    if (result.end != copy_end::done)
        return failure_text(result, target);
    if (fsync(target.fd.get()) != 0)
        return strerror(errno);
    partner.progress(target, target.size);
    *written = result.written;
    return "";
}

// Until one disk cannot be written as a whole.
void write_all(const restore_wish &wish, const target_list &targets, const restore_partner &partner,
               restore_end *end)
{
    const unique_fd hold = hold_mirrors(targets);
    for (const restore_target &target : targets) {
        uint64_t written = 0;
        const std::string problem = write_disk(target, partner, &written);
        if (!problem.empty()) {
            end->why = target.disk.facts.name + ": " + problem +
                       ". A part of it is restored, a part is not; the same command goes on: qelc snapshots "
                       "restore " +
                       wish.name + (wish.disk.empty() ? "" : " --to " + wish.disk);
            return;
        }
        end->disks.push_back({target.disk.facts.name, target.disk.guid, target.size, written});
    }
}

// --- After that ------------------------------------------------------------------------------------------

// The kernel refuses while anybody has a partition open, as udev may for a moment. Devices without partitions
// know nothing of this.
void read_partitions_anew(const disk_facts &disk, const line_taker &say)
{
    const unique_fd fd(open(disk.path.c_str(), O_RDONLY | O_CLOEXEC));
    int error = 0;
    for (int attempt = 0; attempt < 20; attempt++) {
        error = fd.is_open() && ioctl(fd.get(), BLKRRPART) == 0 ? 0 : errno;
        if (error != EBUSY)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (error != 0 && error != EINVAL)
        say(disk.name + ": the kernel goes on with the former partition table (" + strerror(error) +
            "); partprobe " + disk.path + " reads it anew");
}

// False with the reason in WHY.
bool forget_all(const target_list &targets, std::string *why)
{
    for (const restore_target &target : targets) {
        if (!forget_restore(target.disk.guid))
            *why = target.disk.facts.name + ": it is restored, but the record of the restore stays";
    }
    return why->empty();
}

void release_all(target_list targets, const restore_partner &partner)
{
    for (restore_target &target : targets) {
        target.fd.reset();
        read_partitions_anew(target.disk.facts, partner.say);
        if (!target.mirror.empty())
            partner.say(target.disk.facts.name +
                        ": its mirror follows now; qelc mirrors --watch shows how far it is");
    }
}

// Null with the reason in WHY.
std::optional<running_restore> prepare(attached_snapshot one, const restore_wish &wish, std::string *why)
{
    auto targets = open_targets(one, wish, why);
    auto records = load_restores();
    if (targets && records)
        return running_restore{std::move(one), std::move(*targets), std::move(*records)};
    if (targets)
        *why = "the records of restores cannot be read";
    return std::nullopt;
}

// Sets STAYS to whether the snapshot is to stay attached: until the end of a restore that has begun, so that
// nothing removes it.
restore_end run(running_restore running, const restore_wish &wish, const restore_partner &partner,
                bool *stays)
{
    restore_end end;
    if (!partner.confirm(running.one.record, running.targets) ||
        !save_all(wish, running.targets, running.former, partner, &end.why))
        return end;
    if (is_stopped(partner) || !store_all(running)) {
        end.why = std::string("nothing was written, as ") +
                  (is_stopped(partner) ? "it was stopped" : "no record of the restore can be kept");
        return end;
    }
    *stays = true;
    end.why.clear(); // of a note that a snapshot did not get
    write_all(wish, running.targets, partner, &end);
    if (!end.why.empty())
        return end;
    end.is_done = forget_all(running.targets, &end.why);
    *stays = !has_attached(running);
    release_all(std::move(running.targets), partner);
    return end;
}
} // namespace

restore_end restore_snapshot(const restore_wish &wish, const restore_partner &partner)
{
    restore_end end;
    auto one = attach_snapshot(wish.name, &end.why);
    if (!one)
        return end;
    bool stays = one->was_attached;
    auto running = prepare(std::move(*one), wish, &end.why);
    if (running)
        end = run(std::move(*running), wish, partner, &stays);
    std::string why;
    if (!stays && !detach_patiently(wish.name, &why))
        partner.say(wish.name + ": it stays attached: " + why);
    return end;
}
