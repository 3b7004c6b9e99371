#include "platform/linux/mirror/copy.h"

#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/throttle.h"
#include "platform/linux/state/mirror_hold.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

constexpr auto checkpoint_time = 1s;
constexpr auto pause_after_failed_save = 60s;

struct copying {
    mirror &one;
    mirror_ends &ends;
    copy_job job;
    unsigned orders = 0;
    std::string src_guid;
    std::string dest_guid;
    unique_fd hold;
    unique_fd source;
    unique_fd dest;
    throttle limit;
    steady_clock::time_point next_checkpoint = steady_clock::now() + checkpoint_time;
    int sync_error = 0; // why a flush failed
};

// The caller holds the mirror's lock.
bool is_in_force(const copying &work)
{
    return !work.one.leaving && work.one.orders == work.orders;
}

// Takes the write mark before copying begins. Later writes may or may not be copied, so another pass follows
// if the mark has changed at the end.
bool take_order(copying &work)
{
    const auto mark = read_write_mark(work.ends.source.disk->name);
    const std::lock_guard held(work.one.lock);
    mirror_record &record = work.one.record;
    const mirror_record former = record;
    if (record.state == sync_state::level && mark != record.mark)
        record.state = sync_state::recovering;
    const bool is_full = record.state == sync_state::copying;
    if (!is_full && record.state != sync_state::recovering)
        return false;
    if (!is_full)
        record.position = 0;
    if (record.position == 0)
        record.mark = mark.value_or(write_mark{});
    if (record != former)
        save_mirror(record);
    work.one.copied = record.position;
    work.orders = work.one.orders;
    work.job.begin = record.position;
    work.job.end = record.size;
    work.job.compare = !is_full;
    work.src_guid = record.src_guid;
    work.dest_guid = record.dest_guid;
    return true;
}

void fail(copying &work, side which, uint64_t offset, const std::string &problem)
{
    mirror_end &end = which == side::source ? work.ends.source : work.ends.dest;
    end.fault = offset;
    set_link(work.one, which, end, problem);
}

// Also false while the mirror is held; the copy is then done later.
bool hold_and_open(copying &work)
{
    std::string problem;
    work.hold = try_hold_mirrors({work.dest_guid});
    if (!work.hold.is_open()) {
        if (errno != EAGAIN)
            fail(work, side::dest, work.job.begin, std::string("it cannot be held: ") + strerror(errno));
        return false;
    }
    work.source = open_source(*work.ends.source.disk, &problem);
    if (!work.source.is_open()) {
        fail(work, side::source, work.job.begin, problem);
        return false;
    }
    work.dest = open_mirror(*work.ends.dest.disk, &problem);
    if (!work.dest.is_open()) {
        fail(work, side::dest, work.job.begin, problem);
        return false;
    }
    work.job.source = work.source.get();
    work.job.mirror = work.dest.get();
    work.job.own_signature = signature_to_keep(*work.ends.dest.disk);
    return true;
}

// Flushes the mirror, so that its recorded state survives a power cut.
bool make_lasting(copying &work)
{
    if (fsync(work.dest.get()) == 0)
        return true;
    work.sync_error = errno;
    return false;
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
    for (;;) {
        if (steady_clock::now() >= work.next_checkpoint && !checkpoint(work, position))
            return false;
        const auto pause = work.limit.pause(position, steady_clock::now());
        std::unique_lock held(work.one.lock);
        if (!is_in_force(work))
            return false;
        work.one.copied = position;
        if (pause == 0ms)
            return true;
        work.one.changed.wait(held, pause);
    }
}

// True if everything was copied and flushed; else the link of the disk that failed is set down.
bool run(copying &work, const copy_job &job)
{
    const copy_result result = copy_blocks(job);
    if (result.end == copy_end::done && make_lasting(work))
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
    return true;
}

void settle(copying &work)
{
    const auto mark = read_write_mark(work.ends.source.disk->name);
    const std::lock_guard held(work.one.lock);
    if (!is_in_force(work))
        return;
    mirror_record &record = work.one.record;
    const bool is_level = mark == record.mark;
    record.position = is_level ? record.size : 0;
    record.state = is_level ? sync_state::level : sync_state::recovering;
    work.one.copied = record.position;
    save_mirror(record);
    if (!work.job.compare)
        log_info("Disk %s has been copied to mirror %s%s", work.src_guid.c_str(), work.dest_guid.c_str(),
                 is_level ? "" : "; what was written to it meanwhile follows");
}

} // namespace

void copy_what_is_due(mirror &one, mirror_ends &ends)
{
    copying work = {.one = one, .ends = ends};
    if (!take_order(work) || !hold_and_open(work) || !prove(work, ends.source, side::source) ||
        !prove(work, ends.dest, side::dest))
        return;
    work.job.go_on = [&work](uint64_t position) { return go_on(work, position); };
    if (run(work, work.job))
        settle(work);
}
