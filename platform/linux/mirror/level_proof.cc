#include "platform/linux/mirror/level_proof.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/mirror/tracking.h"
#include "platform/linux/state/progress.h"

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

// For so long, and in so many looks one after the other, the books may differ by what passes.
constexpr auto longest_surplus = 100ms; // a write is tracked and not yet counted
constexpr auto longest_under_way = 5s;  // the end of a write was missed, and its number not used again
constexpr unsigned most_doubts = 20;

} // namespace

level_proof::level_proof(copying &work)
    : work_(work), before_(work.ends.source.watch.sectors_changed()),
      under_way_(work.tracker->mark_under_way())
{
}

// Point 4. The facts are set so that a process that is killed in between leaves them true.
bool level_proof::account_for_mirror(uint64_t sectors)
{
    tracker_facts &facts = work_.tracker->facts();
    if (sectors - facts.settled != facts.announced) {
        distrust_tracking(work_, "the mirror has not been changed by the writes of this process alone");
        return false;
    }
    facts.settled = sectors;
    facts.announced = 0;
    return true;
}

// False once there has been doubt for that long.
bool level_proof::may_pass(steady_clock::duration limit)
{
    tracking_choice &choice = work_.ends.tracking;
    const auto now = steady_clock::now();
    choice.doubt_since = choice.doubt_since.value_or(now);
    if (++choice.doubts < most_doubts || now - *choice.doubt_since < limit)
        return true;
    choice.doubt_since.reset();
    choice.doubts = 0;
    return false;
}

// Point 3. A request of unknown place is counted when it begins and when it ends; in between nothing is
// known.
level_proof::verdict level_proof::weigh_unplaced()
{
    if (under_way_.is_unknown && may_pass(longest_under_way))
        return behind;
    compare_all(work_, "it was written to by commands that say nothing of their place");
    return failed;
}

// Point 2, after point 1.
level_proof::verdict level_proof::weigh_books(const tracker_sums &sums, uint64_t source_sectors)
{
    const int64_t more = surplus(*work_.tracker, sums, source_sectors);
    if (more == 0) {
        work_.ends.tracking.doubt_since.reset();
        work_.ends.tracking.doubts = 0;
        return level;
    }
    const auto missed = static_cast<int64_t>(under_way_.sectors);
    if (-more == missed && !has_writes_in_flight(work_.ends.source.disk->name)) {
        work_.tracker->end_under_way();
        return behind; // for the moment of another pass
    }
    const bool is_missed_end = more < 0 && -more <= missed;
    if ((more > 0 && may_pass(longest_surplus)) || (is_missed_end && may_pass(longest_under_way)))
        return behind;
    distrust_tracking(work_, "the kernel counted other writes to it than were tracked");
    return failed;
}

void level_proof::note_level(uint64_t source_sectors, uint64_t dest_sectors)
{
    const std::lock_guard held(work_.one.lock);
    if (!is_in_force(work_))
        return;
    mirror_record &record = work_.one.record;
    const mirror_record former = record;
    record.state = sync_state::level;
    record.position = record.size;
    record.mark = {boot_id(), work_.ends.source.disk->sequence, source_sectors};
    record.dest_mark = {boot_id(), work_.ends.dest.disk->sequence, dest_sectors};
    work_.one.copied = record.size;
    work_.one.level_at = seconds_since_boot();
    work_.one.levels++;
    work_.one.levelled.notify_all();
    if (former.state != record.state && !is_hurried(work_))
        work_.one.is_unsaved = !save_mirror(record);
    else if (record != former)
        work_.one.is_unsaved = true;
}

// The mirror holds the disk's content of that moment, whatever is written to the disk while it is flushed.
bool level_proof::flush_mirror()
{
    bool &is_due = work_.ends.dest.needs_flush;
    if (is_due && make_lasting(work_))
        is_due = false;
    return is_done(work_, {});
}

level_proof::verdict level_proof::end()
{
    const auto dest = work_.ends.dest.watch.sectors_changed();
    if (!before_ || !dest || !account_for_mirror(*dest))
        return failed;
    work_.tracker->forget_taken();
    const tracker_sums sums = work_.tracker->sums();
    const auto after = work_.ends.source.watch.sectors_changed();
    if (sums.unplaced != work_.tracker->facts().unplaced)
        return weigh_unplaced();
    // A second look: a write that was tracked and not yet counted could have made up for one that was lost.
    const bool is_quiet =
        work_.tracker->sums().sectors == sums.sectors && work_.ends.source.watch.sectors_changed() == after;
    if (after != before_ || !is_quiet)
        return behind;
    const verdict result = weigh_books(sums, *after);
    if (result != level)
        return result;
    if (!flush_mirror())
        return failed;
    note_level(*after, *dest);
    return level;
}

bool is_still_level(const mirror &one)
{
    if (!one.tracker)
        return has_level_marks(one.record);
    const tracker_sums sums = one.tracker->sums();
    return surplus(*one.tracker, sums, one.record.mark.sectors) == 0 &&
           sums.unplaced == one.tracker->facts().unplaced && has_level_marks(one.record);
}

bool has_level_marks(const mirror_record &record)
{
    return read_write_mark(disk_name_of(record.dest_path)) == record.dest_mark &&
           read_write_mark(disk_name_of(record.src_path)) == record.mark;
}
