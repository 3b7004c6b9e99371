#include "platform/linux/mirror/follow.h"

#include "platform/linux/mirror/page_copy.h"
#include "platform/linux/mirror/record.h"
#include "platform/linux/mirror/tracking.h"

#include <algorithm>
#include <utility>

// Why "level" is true.
//
// A pass reads the disk's counter of written and discarded sectors (C0), takes the marked pages, reads each
// of them and writes it to the mirror, flushes the mirror, and reads the tracker's sum of sectors (S) and the
// counter again (C1). The mirror is level if and only if
//
//   1. C0 = C1,
//   2. S - C1 is what it was when the tracker was attached (its base),
//   3. no request has been seen whose place is unknown,
//   4. the mirror's own counter has moved by what this process wrote to it, and by nothing else.
//
// The kernel marks a page before it counts the write, and counts it before whoever wrote hears of it. So each
// write that C0 counts had marked its page before the marks were taken, and the page was read after the write
// had ended. By 1 no write ended since: what was read is what is there. By 2 and 3 no write that was counted
// went without its mark. By 4 nobody else changed the mirror. A write that is on its way at that moment may
// be on the mirror in part, as it may be on the disk after a crash.

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

constexpr auto turn_time = 1s;        // until the disks are looked at again
constexpr auto shortest_look = 5ms;   // at the sums of a disk that was written to a moment ago
constexpr auto longest_look = 50ms;   // at those of an idle one
constexpr auto short_rest = 1ms;      // when writes are on their way
constexpr auto mismatch_time = 100ms; // longer than any write is tracked but not counted yet

struct pass_end {
    enum { level, behind, ended } verdict = ended;
    uint64_t events = 0; // of the tracker when the pass began
};

std::optional<write_mark> source_mark(const copying &work)
{
    return read_write_mark(work.ends.source.disk->name);
}

bool is_balanced(const write_tracker &tracker, const tracker_sums &sums, const write_mark &mark)
{
    return static_cast<int64_t>(sums.sectors) - static_cast<int64_t>(mark.sectors) == tracker.facts().base;
}

bool is_ordered(const copying &work)
{
    const std::lock_guard held(work.one.lock);
    return is_in_force(work);
}

bool is_followed(const copying &work)
{
    return work.tracker && covers_mirror(work) && is_ordered(work);
}

// An order ends the wait.
void wait_shortly(const copying &work, std::chrono::milliseconds limit)
{
    std::unique_lock held(work.one.lock);
    if (is_in_force(work))
        work.one.changed.wait(held, limit);
}

// Point 4. The facts are set so that a process that is killed in between leaves them true.
bool account_for_mirror(copying &work, const write_mark &now)
{
    tracker_facts &facts = work.tracker->facts();
    if (now.disk != facts.mirror_device || now.sectors - facts.settled != facts.announced) {
        distrust_tracking(work, "the mirror has not been changed by the writes of this process alone");
        return false;
    }
    facts.settled = now.sectors;
    facts.announced = 0;
    return true;
}

// Copies what is marked and flushes it.
bool copy_marked(copying &work, uint64_t *copied)
{
    work.tracker->take();
    const copy_result result = copy_taken_pages(work);
    if (result.end == copy_end::done && result.written > 0)
        make_lasting(work);
    *copied = result.written;
    return is_done(work, result);
}

void note_level(copying &work, const write_mark &source, const write_mark &dest)
{
    const std::lock_guard held(work.one.lock);
    if (!is_in_force(work))
        return;
    mirror_record &record = work.one.record;
    const bool is_news = record.state != sync_state::level;
    work.one.is_unsaved |= record.mark != source || record.dest_mark != dest;
    record.state = sync_state::level;
    record.position = record.size;
    record.mark = source;
    record.dest_mark = dest;
    work.one.copied = record.size;
    if (is_news)
        work.one.is_unsaved = !save_mirror(record);
}

// Waits for what is tracked but not counted yet; that is over in no time. False if the two never meet while
// nothing else is written.
bool balances_soon(copying &work, const write_mark &mark)
{
    for (const auto end = steady_clock::now() + mismatch_time; steady_clock::now() < end;) {
        const auto now = source_mark(work);
        if (!now || *now != mark || is_balanced(*work.tracker, work.tracker->sums(), mark))
            return true;
        wait_shortly(work, short_rest);
    }
    return false;
}

pass_end make_pass(copying &work)
{
    pass_end end = {.events = work.tracker->sums().events};
    const auto before = source_mark(work);
    uint64_t copied = 0;
    if (!before || !copy_marked(work, &copied))
        return end;
    const auto dest = read_write_mark(work.ends.dest.disk->name);
    if (!dest || !account_for_mirror(work, *dest))
        return end;
    work.tracker->forget_taken();
    const tracker_sums sums = work.tracker->sums();
    const auto after = source_mark(work);
    if (sums.unplaced != work.tracker->facts().unplaced) {
        compare_all(work, "it was written to by commands that say nothing of their place");
        return end;
    }
    end.verdict = pass_end::behind;
    if (!after || *after != *before)
        return end;
    if (is_balanced(*work.tracker, sums, *after)) {
        note_level(work, *after, *dest);
        end.verdict = pass_end::level;
    } else if (!balances_soon(work, *after)) {
        distrust_tracking(work, "the kernel counted other writes to it than were tracked");
        end.verdict = pass_end::ended;
    }
    return end;
}

// A mirror that stays level is saved, so that the next process, and others that only read, find it level.
void save_at_rest(const copying &work, uint64_t events)
{
    const std::lock_guard held(work.one.lock);
    if (is_in_force(work) && work.tracker->sums().events == events &&
        std::exchange(work.one.is_unsaved, false))
        save_mirror(work.one.record);
}

void wait_for_writes(copying &work, uint64_t events, steady_clock::time_point end)
{
    auto period = shortest_look;
    while (is_ordered(work) && steady_clock::now() < end && work.tracker->sums().events == events) {
        wait_shortly(work, period);
        period = std::min(period * 2, longest_look);
    }
    if (steady_clock::now() >= end)
        save_at_rest(work, events);
}

} // namespace

bool follow_writes(copying &work)
{
    const auto end = steady_clock::now() + turn_time;
    while (is_followed(work) && steady_clock::now() < end) {
        if (!hold_mirror(work)) {
            if (work.ends.dest.fault)
                return false;
            wait_shortly(work, longest_look);
            continue;
        }
        const pass_end pass = make_pass(work);
        work.hold.reset();
        if (pass.verdict == pass_end::ended)
            return false;
        if (pass.verdict == pass_end::level)
            wait_for_writes(work, pass.events, end);
        else
            wait_shortly(work, short_rest);
    }
    return is_followed(work);
}

bool is_still_level(const mirror &one)
{
    if (!one.tracker)
        return has_level_marks(one.record);
    const tracker_sums sums = one.tracker->sums();
    return is_balanced(*one.tracker, sums, one.record.mark) &&
           sums.unplaced == one.tracker->facts().unplaced && has_level_marks(one.record);
}
