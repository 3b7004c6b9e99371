#include "platform/linux/mirror/progress.h"

#include "base/exceptions.h"
#include "platform/linux/mirror/level_proof.h"

#include <algorithm>
#include <utility>

namespace {

using namespace std::chrono_literals;

constexpr auto write_period = 1s;
constexpr size_t most_samples = 6;
constexpr uint64_t rest_period = 60; // seconds after which the file of a mirror at rest says so again

// How much a copy of everything has reached, or none is due. The caller holds the mirror's lock.
uint64_t bytes_reached(const mirror &one, bool is_level)
{
    const bool is_marked = one.tracker && one.tracker->facts().coverage == covers_all;
    if (is_level || is_marked)
        return one.record.size;
    // It has changed, and what is to be looked at is not known.
    return one.record.state == sync_state::level ? 0 : one.copied;
}

// Only the worker changes the tracker, so its marks are counted without the lock.
void count_pages(const write_tracker *tracker, bool is_level, mirror_progress &seen)
{
    if (!tracker)
        return;
    seen.page_size = tracker->page_size();
    seen.pages_behind = is_level ? 0 : tracker->pages_behind();
}

// Of the pages that a pass has taken, those before its position are on the mirror already.
void leave_out_copied(mirror_progress &seen, uint64_t position)
{
    if (seen.page_size != 0 && seen.copied == seen.size)
        seen.pages_behind -= std::min(seen.pages_behind, position / seen.page_size);
}

uint64_t events_of(const mirror &one)
{
    return one.tracker ? one.tracker->sums().events : 0;
}

struct look {
    mirror_progress seen;
    write_mark mark; // of the source
    uint64_t events = 0;
    bool is_level = false;
};

look look_at(mirror &one, const std::string &why)
{
    look all;
    mirror_progress &seen = all.seen;
    std::unique_lock held(one.lock);
    const mirror_record &record = one.record;
    all.events = events_of(one); // first: a write that comes now differs from it
    all.is_level = record.state == sync_state::level && is_still_level(one);
    if (all.is_level)
        one.level_at = seconds_since_boot();
    seen.src_guid = record.src_guid;
    seen.dest_guid = record.dest_guid;
    seen.size = record.size;
    seen.copied = bytes_reached(one, all.is_level);
    seen.level_at = one.level_at;
    all.mark = record.mark;
    const write_tracker *tracker = one.tracker.get();
    held.unlock();
    count_pages(tracker, all.is_level, seen);
    seen.tracked = tracker ? tracked_writes::yes : why.empty() ? tracked_writes::unknown : tracked_writes::no;
    seen.reason = tracker ? "" : why;
    return all;
}

} // namespace

// Costs no system call, as this is what most mirrors are most of the time. That the counters of the disks
// have not moved either is what the rest of the turn has looked at.
bool progress_report::is_still_at_rest(mirror &one) const
{
    const std::lock_guard held(one.lock);
    if (!shown_.is_level || one.record.state != sync_state::level || one.record.mark != former_mark_ ||
        events_of(one) != former_events_)
        return false;
    one.level_at = seconds_since_boot();
    return one.level_at - shown_.level_at < rest_period;
}

// The window is longer for a copy whose blocks take more than a second each.
uint64_t progress_report::rate_at(clock::time_point now, uint64_t position)
{
    if (!samples_.empty() && position < samples_.back().position)
        samples_.clear(); // another pass
    if (samples_.empty() || position > samples_.back().position)
        samples_.push_back({now, position});
    if (samples_.size() > most_samples)
        samples_.erase(samples_.begin());
    const std::chrono::duration<double> time = now - samples_.front().time;
    const auto bytes = static_cast<double>(position - samples_.front().position);
    return time > 0s ? static_cast<uint64_t>(bytes / time.count()) : 0;
}

// What a former process has told of the same relationship: when it was level last.
void progress_report::begin(mirror &one)
{
    if (std::exchange(has_begun_, true))
        return;
    const std::lock_guard held(one.lock);
    const auto former = read_progress(one.record.src_guid, progress_writer::former);
    if (former && former->dest_guid == one.record.dest_guid)
        one.level_at = std::max(one.level_at, former->level_at);
}

void progress_report::write(mirror_progress fresh)
{
    if (fresh != shown_)
        shown_ = write_progress(fresh) ? std::move(fresh) : mirror_progress{};
}

void progress_report::note(mirror &one, const std::string &why, std::optional<uint64_t> position)
{
    const auto now = clock::now();
    const bool ends_rest = position && shown_.is_level;
    if (now < next_write_ && !ends_rest)
        return;
    next_write_ = now + write_period;
    if (!position && is_still_at_rest(one))
        return;
    const int error = error_of([&] {
        begin(one);
        look all = look_at(one, why);
        all.seen.is_level = all.is_level && !position && all.mark == former_mark_;
        former_mark_ = std::move(all.mark);
        former_events_ = all.events;
        if (position) {
            all.seen.rate = rate_at(now, *position);
            leave_out_copied(all.seen, *position);
        } else {
            samples_.clear();
        }
        write(std::move(all.seen));
    });
    if (error != 0)
        shown_ = {}; // tried again a second later
}
