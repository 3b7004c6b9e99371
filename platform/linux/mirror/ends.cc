#include "platform/linux/mirror/ends.h"

#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/write_mark.h"

namespace {

// "" if DISK is suitable.
std::string objection_to(side which, const located_disk &disk, uint64_t size)
{
    if (which == side::dest)
        return disk.size < size ? disk.path + " is smaller than the disk that it mirrors" : "";
    if (disk.size != size)
        return "the size of " + disk.path + " is another one than when it was protected";
    return read_write_mark(disk.name) ? "" : "the kernel does not count what is written to " + disk.path;
}

bool find_disk(mirror &one, side which, mirror_end &end)
{
    if (end.disk && is_still_there(*end.disk))
        return true;
    if (end.disk)
        end = mirror_end{};
    std::string guid;
    uint64_t size = 0;
    {
        const std::lock_guard held(one.lock);
        guid = which == side::source ? one.record.src_guid : one.record.dest_guid;
        size = one.record.size;
    }
    std::string problem;
    auto found = locate_disk(guid, &problem);
    if (found)
        problem = objection_to(which, *found, size);
    if (problem.empty())
        end.disk = std::move(found);
    if (!problem.empty() || !end.fault)
        set_link(one, which, end, problem);
    return end.disk.has_value();
}

} // namespace

bool find_disks(mirror &one, mirror_ends &ends)
{
    const bool has_source = find_disk(one, side::source, ends.source);
    const bool has_dest = find_disk(one, side::dest, ends.dest);
    return has_source && has_dest;
}

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
