#include "platform/linux/mirror/level_proof.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/mirror/tracking.h"

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

// A surplus that is found in so many looks one after the other, and that long, is none of the moment.
constexpr auto longest_surplus = 100ms;
constexpr unsigned most_looks = 20;

int64_t surplus(const write_tracker &tracker, const tracker_sums &sums, uint64_t counted)
{
    return static_cast<int64_t>(sums.sectors - counted) - tracker.facts().base;
}

} // namespace

level_proof::level_proof(copying &work) : work_(work), before_(sectors_changed(work.ends.source.counters)) {}

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

// Points 2 and 3, after point 1.
level_proof::verdict level_proof::weigh_books(const tracker_sums &sums, uint64_t source_sectors)
{
    const int64_t more = surplus(*work_.tracker, sums, source_sectors);
    auto &since = work_.ends.tracking.surplus_since;
    unsigned &looks = work_.ends.tracking.surplus_looks;
    if (more == 0) {
        since.reset();
        looks = 0;
        return level;
    }
    const auto now = steady_clock::now();
    since = since.value_or(now);
    if (more > 0 && (++looks < most_looks || now - *since < longest_surplus))
        return behind;
    since.reset();
    looks = 0;
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
    if (former.state != record.state && !is_hurried(work_))
        work_.one.is_unsaved = !save_mirror(record);
    else if (record != former)
        work_.one.is_unsaved = true;
}

level_proof::verdict level_proof::end()
{
    const auto dest = sectors_changed(work_.ends.dest.counters);
    if (!before_ || !dest || !account_for_mirror(*dest))
        return failed;
    work_.tracker->forget_taken();
    const tracker_sums sums = work_.tracker->sums();
    const auto after = sectors_changed(work_.ends.source.counters);
    if (sums.unplaced != work_.tracker->facts().unplaced) {
        compare_all(work_, "it was written to by commands that say nothing of their place");
        return failed;
    }
    // A second look: a write that was tracked and not yet counted could have made up for one that was lost.
    const bool is_quiet =
        work_.tracker->sums().sectors == sums.sectors && sectors_changed(work_.ends.source.counters) == after;
    if (after != before_ || !is_quiet)
        return behind;
    const verdict result = weigh_books(sums, *after);
    if (result == level)
        note_level(*after, *dest);
    return result;
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
