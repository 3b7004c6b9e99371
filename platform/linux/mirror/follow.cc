#include "platform/linux/mirror/follow.h"

#include "platform/linux/mirror/level_proof.h"
#include "platform/linux/mirror/page_copy.h"
#include "platform/linux/mirror/tracking.h"

#include <algorithm>
#include <utility>

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

constexpr auto turn_time = 1500ms;   // until the disks are looked at again
constexpr auto shortest_look = 4ms;  // at the sums of a disk that was written to a moment ago
constexpr auto longest_look = 16ms;  // after that the tracker wakes us
constexpr auto pause_in_doubt = 2ms; // until the books are looked at again
constexpr auto hold_pause = 20ms;    // while a snapshot of the mirror is taken

// An order ends the wait, a look of somebody who finds that the mirror is not level, and the descriptor.
void wait_shortly(const copying &work, steady_clock::duration limit, int wakes = -1)
{
    std::unique_lock held(work.one.lock);
    if (is_in_force(work))
        work.one.changed.wait(held, std::chrono::ceil<std::chrono::milliseconds>(limit), wakes);
}

// Whether somebody waits for a level mirror.
bool is_awaited(const copying &work)
{
    const std::lock_guard held(work.one.lock);
    return work.one.waiting;
}

// False if a disk failed, or another order came.
bool copy_marked(copying &work)
{
    work.position.reset();
    return !work.tracker->take() || is_done(work, copy_taken_pages(work));
}

level_proof::verdict make_pass(copying &work)
{
    note_who_waits(work);
    level_proof proof(work);
    const auto result = copy_marked(work) ? proof.end() : level_proof::failed;
    if (result == level_proof::level)
        hand_over_hold(work);
    work.hold.reset();
    return result;
}

bool ends_in_doubt(const copying &work, level_proof::verdict verdict)
{
    return verdict == level_proof::behind && work.ends.tracking.doubt_since;
}

// A mirror that stays level is saved, so that the next process, and others that only read, find it level.
void save_at_rest(const copying &work)
{
    const std::lock_guard held(work.one.lock);
    if (is_in_force(work) && std::exchange(work.one.is_unsaved, false))
        save_mirror(work.one.record);
}

// Until a write has ended; or one has begun and its end is not seen at the next look: it may have been
// missed. While nothing is written for a while, this sleeps.
void wait_for_writes(copying &work, const tracker_sums &known, steady_clock::time_point end)
{
    std::chrono::milliseconds &period = work.ends.tracking.look_period;
    bool has_begun = false;
    while (is_followed(work) && !is_awaited(work)) {
        const bool may_sleep = period >= longest_look;
        if (may_sleep)
            work.tracker->set_alarm();
        const tracker_sums now = work.tracker->sums();
        if (now.events != known.events || (has_begun && now.begun != known.begun)) {
            period = 0ms;
            return;
        }
        has_begun = now.begun != known.begun;
        if (steady_clock::now() >= end) {
            save_at_rest(work);
            work.ends.dest.samples.remember(work.job.mirror, true);
            return;
        }
        period = std::clamp<std::chrono::milliseconds>(period * 2, shortest_look, longest_look);
        if (may_sleep && !has_begun)
            wait_shortly(work, end - steady_clock::now(), work.tracker->alarm());
        else
            wait_shortly(work, has_begun ? shortest_look : period);
    }
}

} // namespace

bool is_followed(const copying &work)
{
    const std::lock_guard held(work.one.lock);
    const sync_state state = work.one.record.state;
    return work.tracker && covers_mirror(work) && is_in_force(work) &&
           (state == sync_state::level || state == sync_state::recovering);
}

bool follow_writes(copying &work)
{
    const auto end = steady_clock::now() + turn_time;
    while (is_followed(work) && steady_clock::now() < end) {
        if (!hold_mirror(work)) {
            if (work.ends.dest.fault)
                return false;
            wait_shortly(work, hold_pause);
            continue;
        }
        const tracker_sums known = work.tracker->sums();
        const auto verdict = make_pass(work);
        if (verdict == level_proof::failed)
            return false;
        if (ends_in_doubt(work, verdict))
            wait_shortly(work, pause_in_doubt);
        if (verdict == level_proof::level) {
            work.ends.dest.samples.remember(work.job.mirror, false);
            wait_for_writes(work, known, end);
        }
    }
    return is_followed(work);
}
