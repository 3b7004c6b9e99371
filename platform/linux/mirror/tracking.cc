#include "platform/linux/mirror/tracking.h"

#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/settings.h"

#include <algorithm>
#include <cstring>
#include <thread>

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

constexpr unsigned most_mismatches = 3;
constexpr auto pause_after_mismatches = 10min;

// The kernel passes a write on to the tracker before it counts it, so a look at both may find more sectors
// tracked than counted, never less. The smallest difference of several looks is the true one. Null if the
// counters cannot be read.
std::optional<int64_t> find_base(const write_tracker &tracker, const std::string &disk_name)
{
    constexpr int looks = 20;
    std::optional<int64_t> base;
    for (int i = 0; i < looks; i++) {
        const auto mark = read_write_mark(disk_name);
        const uint64_t tracked = tracker.sums().sectors;
        if (mark) {
            const auto more = static_cast<int64_t>(tracked - mark->sectors);
            base = std::min(base.value_or(more), more);
        }
        std::this_thread::sleep_for(1ms);
    }
    return base;
}

// A mirror that was away may be another copy; one that was written to by others differs from its disk. A
// process that was killed has written no more than it had announced.
bool is_mirror_as_left(const tracker_facts &facts, const write_mark &now)
{
    return now.disk == facts.mirror_device && now.sectors >= facts.settled &&
           now.sectors - facts.settled <= facts.announced;
}

void start_facts(write_tracker &tracker, const mirror_record &record, const mirror_ends &ends)
{
    tracker_facts &facts = tracker.facts();
    facts.base = find_base(tracker, ends.source.disk->name).value_or(0);
    facts.unplaced = tracker.sums().unplaced;
    const auto source = read_write_mark(ends.source.disk->name);
    const auto dest = read_write_mark(ends.dest.disk->name);
    facts.coverage = covers_nothing;
    if (!source || !dest || source != record.mark)
        return;
    // Nothing has been written since that mark was taken.
    if (record.state == sync_state::level && dest == record.dest_mark)
        facts.coverage = covers_all;
    else if (record.state == sync_state::copying)
        facts.coverage = covers_begun;
    facts.settled = dest->sectors;
    dest->disk.copy(facts.mirror_device, sizeof facts.mirror_device - 1);
}

// Whether the marks of the program of another version cover all writes until now. It is given time: the disk
// may be written to.
bool has_seen_all(write_tracker &former, const mirror_end &source)
{
    constexpr int looks = 200;
    for (int i = 0; i < looks; i++) {
        const auto before = source.watch.sectors_changed();
        const under_way_sums missed = former.mark_under_way();
        const tracker_sums sums = former.sums();
        const auto after = source.watch.sectors_changed();
        if (!after || sums.unplaced != former.facts().unplaced)
            return false;
        const int64_t more = surplus(former, sums, *after);
        if (before == after && more == 0 && former.sums().sectors == sums.sectors)
            return true;
        const bool is_missed_end = more < 0 && -more == static_cast<int64_t>(missed.sectors);
        if (before == after && is_missed_end && !has_writes_in_flight(source.disk->name))
            former.end_under_way();
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

void take_over_former(write_tracker &tracker, const mirror_record &record, const mirror_ends &ends)
{
    if (has_seen_all(*tracker.former(), ends.source))
        tracker.take_over_former();
    else if (tracker.facts().coverage == covers_nothing)
        log_warning(
            "Disk %s is compared with its mirror as a whole: the version before has not seen all that was "
            "written to it",
            record.src_guid.c_str());
}

void check_mirror(write_tracker &tracker, const mirror_record &record, const mirror_ends &ends)
{
    tracker_facts &facts = tracker.facts();
    const auto dest = read_write_mark(ends.dest.disk->name);
    if (facts.coverage != covers_all)
        return;
    if (dest && is_mirror_as_left(facts, *dest)) {
        facts.settled = dest->sectors;
        facts.announced = 0;
        return;
    }
    facts.coverage = covers_nothing;
    log_info("Mirror %s may have changed while it was away; it is compared with its disk",
             record.dest_guid.c_str());
}

std::string announcement(const std::string &src_guid, const write_tracker *tracker, const std::string &why)
{
    if (!tracker)
        return "Disk " + src_guid + " is compared as a whole whenever it was written to: " + why;
    return "Writes to disk " + src_guid + " are tracked in pages of " + std::to_string(tracker->page_size()) +
           " bytes";
}

} // namespace

int64_t surplus(const write_tracker &tracker, const tracker_sums &sums, uint64_t counted)
{
    return static_cast<int64_t>(sums.sectors - counted) - tracker.facts().base;
}

void settle_tracking(mirror &one, mirror_ends &ends)
{
    tracking_choice &choice = ends.tracking;
    if (choice.is_settled && steady_clock::now() < choice.retry)
        return;
    choice.retry = steady_clock::time_point::max();
    choice.mismatches = 0;
    const mirror_record record = [&] {
        const std::lock_guard held(one.lock);
        return one.record;
    }();
    const embedded_settings wanted = read_settings();
    const uint64_t page = std::max(wanted.tracking_page, tracking_page(record.size, wanted.tracking_memory));
    std::string why;
    std::shared_ptr<write_tracker> tracker =
        write_tracker::open(record.src_guid, ends.source.disk->name, record.size, page, &why);
    if (tracker && tracker->is_new()) {
        start_facts(*tracker, record, ends);
        if (tracker->former())
            take_over_former(*tracker, record, ends);
        tracker->keep();
    }
    if (tracker)
        check_mirror(*tracker, record, ends);
    choice.why = tracker ? "" : why;
    ends.pages.reset(); // its pages may be larger
    log_at(tracker ? LOG_INFO : LOG_WARNING, "%s", announcement(record.src_guid, tracker.get(), why).c_str());
    choice.is_settled = true; // not before: memory may run out on the way
    const std::lock_guard held(one.lock);
    one.tracker = std::move(tracker);
}

void note_mirror_state(copying &work)
{
    const auto dest = read_write_mark(work.ends.dest.disk->name);
    tracker_facts &facts = work.tracker->facts();
    facts.settled = dest ? dest->sectors : 0;
    facts.announced = 0;
    memset(facts.mirror_device, 0, sizeof facts.mirror_device);
    if (dest)
        dest->disk.copy(facts.mirror_device, sizeof facts.mirror_device - 1);
}

void begin_coverage(const copying &work)
{
    if (!work.tracker)
        return;
    work.tracker->facts().unplaced = work.tracker->sums().unplaced;
    work.tracker->facts().coverage = covers_begun;
}

void end_coverage(const copying &work)
{
    if (work.tracker)
        work.tracker->facts().coverage = covers_nothing;
}

bool covers_mirror(const copying &work)
{
    return !work.tracker || work.tracker->facts().coverage == covers_all;
}

void compare_all(copying &work, const std::string &reason)
{
    log_warning("Disk %s is compared with its mirror as a whole: %s", work.src_guid.c_str(), reason.c_str());
    tracker_facts &facts = work.tracker->facts();
    work.tracker->forget_under_way();
    const auto base = find_base(*work.tracker, work.ends.source.disk->name);
    const std::lock_guard held(work.one.lock);
    facts.coverage = covers_nothing;
    facts.base = base.value_or(facts.base);
    facts.unplaced = work.tracker->sums().unplaced;
}

void distrust_tracking(copying &work, const std::string &reason)
{
    compare_all(work, reason);
    tracking_choice &choice = work.ends.tracking;
    const auto now = steady_clock::now();
    if (now - std::exchange(choice.last_mismatch, now) > pause_after_mismatches)
        choice.mismatches = 0;
    if (++choice.mismatches < most_mismatches)
        return;
    log_warning("The writes to disk %s are not tracked for the next ten minutes", work.src_guid.c_str());
    choice.retry = now + pause_after_mismatches;
    choice.why = "the kernel passed over some of its writes; this is tried again ten minutes later";
    remove_tracker(work.src_guid);
    work.tracker = nullptr;
    const std::lock_guard held(work.one.lock);
    work.one.tracker.reset();
}
