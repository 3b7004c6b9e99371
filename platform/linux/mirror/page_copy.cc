#include "platform/linux/mirror/page_copy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t alignment = 4096;

// Made at the first need and kept, of which only what is used takes memory. Null: no memory.
char *buffer_of(copying &work, uint64_t size)
{
    auto &pages = work.ends.pages;
    if (!pages)
        pages.reset(
            static_cast<char *>(aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)));
    return pages.get();
}

copy_result failure(copy_end whose, ssize_t count, uint64_t offset)
{
    // A short transfer means that the device has become smaller.
    return {.end = whose, .error = count < 0 ? errno : EIO, .failed_at = offset};
}

copy_result copy_run(copying &work, const page_run &run, char *bytes)
{
    const size_t size = run.end - run.begin;
    const auto offset = static_cast<off_t>(run.begin);
    ssize_t count = pread(work.job.source, bytes, size, offset);
    if (count != static_cast<ssize_t>(size))
        return failure(copy_end::source_failed, count, run.begin);
    if (work.job.own_signature && run.begin == 0)
        memcpy(bytes + signature_offset, work.job.own_signature->data(), work.job.own_signature->size());
    if (!work.ends.dest.samples.make_way(run.begin, run.end))
        return {.end = copy_end::failed, .error = EIO, .failed_at = run.begin};
    work.tracker->facts().announced += size / 512;
    work.ends.dest.needs_flush = true;
    count = pwrite(work.job.mirror, bytes, size, offset);
    if (count != static_cast<ssize_t>(size))
        return failure(copy_end::mirror_failed, count, run.begin);
    return {.written = size};
}

} // namespace

copy_result copy_taken_pages(copying &work)
{
    copy_result all;
    const uint64_t longest = std::max(copy_block, work.tracker->page_size());
    auto run = work.tracker->next_taken(0, longest);
    char *bytes = run ? buffer_of(work, longest) : nullptr;
    if (run && !bytes)
        return {.end = copy_end::failed, .error = ENOMEM};
    for (; run; run = work.tracker->next_taken(run->end, longest)) {
        if (!wait_for_turn(work, all.written))
            return {.end = copy_end::stopped};
        const copy_result one = copy_run(work, *run, bytes);
        if (one.end != copy_end::done)
            return one;
        all.written += one.written;
    }
    note_position(work, all.written);
    return all;
}
