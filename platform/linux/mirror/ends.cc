#include "platform/linux/mirror/ends.h"

#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/disk_census.h"
#include "platform/linux/mirror/write_mark.h"
#include "platform/linux/state/mirror_hold.h"

namespace {

// "" if DISK is suitable.
std::string objection_to(side which, const mirror_end &end, uint64_t size)
{
    const located_disk &disk = *end.disk;
    if (which == side::dest && disk.size < size)
        return disk.path + " is smaller than the disk that it mirrors";
    if (which == side::source && disk.size != size)
        return "the size of " + disk.path + " is another one than when it was protected";
    const bool is_counted =
        end.fd.is_open() ? end.watch.counts_writes() : read_write_mark(disk.name).has_value();
    return is_counted ? "" : "the kernel does not count what is written to " + disk.path;
}

std::string open_source_end(mirror_end &end)
{
    std::string problem;
    end.fd = open_source(*end.disk, &problem);
    end.watch = disk_watch(*end.disk);
    return problem;
}

std::string open_mirror_end(const std::string &src_guid, mirror_end &end)
{
    std::string problem;
    unique_fd fd = open_mirror(*end.disk, &problem);
    if (problem.empty())
        problem = objection_to_copy(src_guid, *end.disk, fd.get());
    if (!problem.empty())
        return problem;
    end.samples = page_samples(src_guid, *end.disk);
    end.fd = std::move(fd);
    end.watch = disk_watch(*end.disk);
    end.claim = claim_mirror(end.disk->guid);
    return "";
}

// Another disk with the same GUID may have come since the last look.
void search(const std::string &guid, mirror_end &end, std::string *problem)
{
    const uint64_t census = disk_census();
    if (end.disk && end.census == census)
        return;
    auto found = locate_disk(guid, problem);
    if (!found || !end.disk || found->path != end.disk->path || found->sequence != end.disk->sequence)
        end = mirror_end{.fault = end.fault};
    if (found && !end.disk)
        end.disk = std::move(found);
    end.census = census;
}

bool is_the_same(const mirror_end &end)
{
    return end.fd.is_open() ? end.watch.is_same() : is_still_there(*end.disk);
}

bool find_disk(mirror &one, side which, mirror_end &end)
{
    if (end.disk && !is_the_same(end))
        end = mirror_end{};
    const mirror_record record = [&] {
        const std::lock_guard held(one.lock);
        return one.record;
    }();
    std::string problem;
    search(which == side::source ? record.src_guid : record.dest_guid, end, &problem);
    if (problem.empty())
        problem = objection_to(which, end, record.size);
    if (problem.empty() && !end.fd.is_open())
        problem = which == side::source ? open_source_end(end) : open_mirror_end(record.src_guid, end);
    if (!problem.empty() || !end.fault)
        set_link(one, which, end, problem);
    return problem.empty();
}

} // namespace

bool find_disks(mirror &one, mirror_ends &ends)
{
    const bool were_open = ends.source.fd.is_open() && ends.dest.fd.is_open();
    const bool has_source = find_disk(one, side::source, ends.source);
    const bool has_dest = find_disk(one, side::dest, ends.dest);
    if (!were_open)
        ends.tracking.is_settled = false;
    return has_source && has_dest;
}

namespace {

// A disk that was away may come back with other content, whatever the counters say: everything is compared
// before the two are level again. The caller holds the mirror's lock.
void expect_changes(mirror &one)
{
    if (one.tracker)
        one.tracker->facts().coverage = covers_nothing;
    one.record.mark = {};
    if (one.record.state == sync_state::level) {
        one.record.state = sync_state::recovering;
        one.record.position = 0;
        one.copied = 0;
    }
}

} // namespace

void set_link(mirror &one, side which, const mirror_end &end, const std::string &problem)
{
    const std::lock_guard held(one.lock);
    const mirror_record former = one.record;
    const bool is_source = which == side::source;
    std::string &path = is_source ? one.record.src_path : one.record.dest_path;
    if (end.disk)
        path = end.disk->path;
    bool &is_up = is_source ? one.record.src_is_up : one.record.dest_is_up;
    const bool was_up = std::exchange(is_up, problem.empty());
    if (was_up && !is_up)
        expect_changes(one);
    const char *name = is_source ? "source" : "mirror";
    if (was_up && !is_up)
        log_error("The %s of relationship %s -> %s is down: %s", name, one.record.src_guid.c_str(),
                  one.record.dest_guid.c_str(), problem.c_str());
    if (is_up && !was_up)
        log_info("The %s of relationship %s -> %s is up again at %s", name, one.record.src_guid.c_str(),
                 one.record.dest_guid.c_str(), path.c_str());
    if (one.record != former)
        save_mirror(one.record);
}
