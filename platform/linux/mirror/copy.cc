#include "platform/linux/mirror/copy.h"

#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/copying.h"
#include "platform/linux/mirror/follow.h"
#include "platform/linux/mirror/level_proof.h"
#include "platform/linux/mirror/tracking.h"

#include <algorithm>

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

constexpr auto checkpoint_time = 1s;
constexpr auto pause_after_failed_save = 60s;

// Whether the mirror must be compared with its disk, or copied to, as a whole.
bool needs_whole_pass(const copying &work, const mirror_record &record, bool is_as_marked)
{
    switch (record.state) {
    case sync_state::copying:
        return true;
    case sync_state::recovering:
        return !work.tracker || !covers_mirror(work);
    case sync_state::level:
        return work.tracker ? !covers_mirror(work) : !is_as_marked;
    default:
        return false;
    }
}

bool is_same_device(const write_mark &one, const std::optional<write_mark> &other)
{
    return other && one.boot == other->boot && one.disk == other->disk;
}

// Takes the write mark before copying begins. Later writes may or may not be copied, so another pass follows
// if the mark has changed at the end.
bool take_order(copying &work)
{
    if (is_followed(work))
        return false;
    const auto mark = read_write_mark(work.ends.source.disk->name);
    const auto dest_mark = read_write_mark(work.ends.dest.disk->name);
    const std::lock_guard held(work.one.lock);
    mirror_record &record = work.one.record;
    const mirror_record former = record;
    if (!is_in_force(work) ||
        !needs_whole_pass(work, record, mark == record.mark && dest_mark == record.dest_mark))
        return false;
    const bool is_full = record.state == sync_state::copying;
    if (!is_full) {
        record.state = sync_state::recovering;
        record.position = 0;
    }
    if (record.position == 0) {
        record.mark = mark.value_or(write_mark{});
        begin_coverage(work);
    } else if (!is_same_device(record.dest_mark, dest_mark)) {
        record.mark = {}; // what was copied before went to another mirror: a pass follows
        end_coverage(work);
    }
    record.dest_mark = dest_mark.value_or(write_mark{});
    if (record != former)
        save_mirror(record);
    work.one.copied = record.position;
    work.job.begin = record.position;
    work.job.compare = !is_full;
    return true;
}

bool checkpoint(copying &work, uint64_t position)
{
    if (!make_lasting(work))
        return false;
    const std::lock_guard held(work.one.lock);
    if (!is_in_force(work))
        return false;
    work.one.record.position = position;
    const bool is_saved = save_mirror(work.one.record);
    work.next_checkpoint = steady_clock::now() + (is_saved ? checkpoint_time : pause_after_failed_save);
    return true;
}

bool go_on(copying &work, uint64_t position)
{
    if (steady_clock::now() >= work.next_checkpoint && !checkpoint(work, position))
        return false;
    {
        const std::lock_guard held(work.one.lock);
        work.one.copied = position;
    }
    return wait_for_turn(work, position);
}

// True if everything was copied and flushed; else the link of the disk that failed is set down.
bool run(copying &work, const copy_job &job)
{
    if (!work.ends.dest.samples.make_way(job.begin, job.end))
        return is_done(work, {.end = copy_end::failed, .error = EIO, .failed_at = job.begin});
    const copy_result result = copy_blocks(job);
    if (result.end == copy_end::done)
        make_lasting(work);
    return is_done(work, result);
}

// A disk that failed counts as working again only if the block that failed can be copied.
bool prove(copying &work, mirror_end &end, side which)
{
    if (!end.fault)
        return true;
    copy_job job = work.job;
    job.begin = *end.fault / copy_block * copy_block;
    job.end = std::min(job.begin + copy_block, work.job.end);
    if (!run(work, job))
        return false;
    end.fault.reset();
    set_link(work.one, which, end, "");
    if (work.tracker)
        note_mirror_state(work);
    return true;
}

// A tracked mirror is level once its pages have been followed up.
void settle(copying &work)
{
    const auto mark = read_write_mark(work.ends.source.disk->name);
    const auto dest_mark = read_write_mark(work.ends.dest.disk->name);
    if (work.tracker) {
        note_mirror_state(work);
        tracker_facts &facts = work.tracker->facts();
        facts.coverage = facts.coverage == covers_begun ? covers_all : covers_nothing;
    }
    const std::lock_guard held(work.one.lock);
    if (!is_in_force(work))
        return;
    mirror_record &record = work.one.record;
    const bool is_unchanged = mark == record.mark && dest_mark;
    const bool is_level = is_unchanged && !work.tracker;
    record.position = is_level ? record.size : 0;
    record.state = is_level ? sync_state::level : sync_state::recovering;
    record.dest_mark = dest_mark.value_or(write_mark{});
    work.one.copied = record.position;
    save_mirror(record);
    if (!work.job.compare)
        log_info("Disk %s has been copied to mirror %s%s", work.src_guid.c_str(), work.dest_guid.c_str(),
                 is_unchanged ? "" : "; what was written to it meanwhile follows");
}

bool is_level(const copying &work)
{
    const std::lock_guard held(work.one.lock);
    return work.one.record.state == sync_state::level && is_still_level(work.one);
}

// A mirror that is not tracked is looked at again once nobody can write to it.
void serve_who_waits(copying &work)
{
    note_who_waits(work);
    {
        const std::lock_guard held(work.one.lock);
        if (!work.one.waiting || work.one.record.state != sync_state::level)
            return;
    }
    if (!hold_mirror(work))
        return;
    if (is_level(work))
        hand_over_hold(work);
    work.hold.reset();
}

// False if a disk failed, or another order came.
bool make_whole_pass(copying &work)
{
    work.job.go_on = [&work](uint64_t position) { return go_on(work, position); };
    if (!run(work, work.job))
        return false;
    settle(work);
    return true;
}

} // namespace

bool copy_what_is_due(mirror &one, mirror_ends &ends)
{
    settle_tracking(one, ends);
    copying work(one, ends);
    const bool is_due = take_order(work);
    if ((is_due || ends.source.fault || ends.dest.fault) &&
        (!hold_mirror(work) || !prove(work, ends.source, side::source) ||
         !prove(work, ends.dest, side::dest) || (is_due && !make_whole_pass(work))))
        return false;
    work.hold.reset();
    if (is_followed(work))
        return follow_writes(work);
    if (!work.tracker && is_level(work))
        work.ends.dest.samples.remember(work.job.mirror, true);
    serve_who_waits(work);
    return false;
}
