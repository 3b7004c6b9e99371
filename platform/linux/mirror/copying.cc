#include "platform/linux/mirror/copying.h"

#include "platform/linux/state/mirror_hold.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

copying::copying(mirror &of, mirror_ends &both)
    : one(of), ends(both), next_checkpoint(steady_clock::now() + 1s)
{
    const std::lock_guard held(one.lock);
    tracker = one.tracker.get();
    orders = one.orders;
    src_guid = one.record.src_guid;
    dest_guid = one.record.dest_guid;
    job.source = ends.source.fd.get();
    job.mirror = ends.dest.fd.get();
    job.end = one.record.size;
    job.own_signature = signature_to_keep(*ends.dest.disk);
}

bool is_in_force(const copying &work)
{
    return !work.one.leaving && work.one.orders == work.orders;
}

bool is_hurried(const copying &work)
{
    return work.one.waiting && work.one.waiting->hurries;
}

void fail(copying &work, side which, uint64_t offset, const std::string &problem)
{
    mirror_end &end = which == side::source ? work.ends.source : work.ends.dest;
    end.fault = offset;
    set_link(work.one, which, end, problem);
}

bool hold_mirror(copying &work)
{
    work.hold = try_hold_mirrors({work.dest_guid});
    if (!work.hold.is_open() && errno != EAGAIN)
        fail(work, side::dest, work.job.begin, std::string("it cannot be held: ") + strerror(errno));
    return work.hold.is_open();
}

void note_who_waits(const copying &work)
{
    const std::lock_guard held(work.one.lock);
    if (work.one.waiting)
        work.one.waiting->is_noted = true;
}

void hand_over_hold(copying &work)
{
    const std::lock_guard held(work.one.lock);
    if (!work.one.waiting || !work.one.waiting->is_noted || !is_in_force(work))
        return;
    work.one.waiting->hold = std::move(work.hold);
    work.one.waiting = nullptr;
    work.one.served.notify_all();
}

bool make_lasting(copying &work)
{
    if (fsync(work.job.mirror) == 0)
        return true;
    work.sync_error = errno;
    return false;
}

bool is_done(copying &work, const copy_result &result)
{
    if (result.end == copy_end::done && work.sync_error == 0)
        return true;
    if (work.sync_error != 0) {
        fail(work, side::dest, 0, std::string("it cannot be flushed: ") + strerror(work.sync_error));
        return false;
    }
    const std::string where = " at byte " + std::to_string(result.failed_at) + ": " + strerror(result.error);
    if (result.end == copy_end::source_failed)
        fail(work, side::source, result.failed_at, "it cannot be read" + where);
    else if (result.end != copy_end::stopped)
        fail(work, side::dest, result.failed_at, "it cannot be brought level" + where);
    return false;
}

void note_position(copying &work, uint64_t position)
{
    work.ends.copied += position - std::min(work.position.value_or(position), position);
    work.position = position;
}

bool wait_for_turn(copying &work, uint64_t position)
{
    note_position(work, position);
    for (;;) {
        work.ends.progress.note(work.one, work.ends.tracking.why, position);
        const auto pause = work.ends.limit.pause(work.ends.copied, steady_clock::now());
        std::unique_lock held(work.one.lock);
        if (!is_in_force(work))
            return false;
        if (pause == 0ms || is_hurried(work))
            return true;
        work.one.changed.wait(held, pause);
    }
}
