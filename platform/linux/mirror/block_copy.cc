#include "platform/linux/mirror/block_copy.h"

#include "platform/linux/mirror/block_queue.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace {

// Large blocks are the fastest way to write; smaller ones to read two disks: a block that differs in several
// places, which are written one after the other, then holds up less.
struct block_plan {
    unsigned count; // in flight
    uint64_t size;
};
constexpr block_plan plain_plan{8, copy_block};
constexpr block_plan compare_plan{16, copy_block / 4};

// One block in flight.
struct slot {
    enum step { idle, reading, reading_mirror, writing, failed } doing = idle;
    uint64_t offset = 0;
    uint64_t size = 0;
    uint64_t first = 0; // the part that is written
    uint64_t last = 0;
    char *content = nullptr;
    char *former = nullptr; // the mirror's content, if blocks are compared
};

class copier {
public:
    explicit copier(const copy_job &job)
        : job_(job), plan_(job.compare ? compare_plan : plain_plan), next_(job.begin), queue_(plan_.count),
          slots_(plan_.count)
    {
    }
    ~copier();
    copier(const copier &) = delete;
    copier &operator=(const copier &) = delete;

    copy_result run();

private:
    bool get_memory();
    bool has_work() const { return next_ < job_.end && result_.end == copy_end::done; }
    uint64_t position() const;
    void start(slot &one);
    void submit(slot &one, slot::step what);
    void complete(slot &one, int count);
    void fail(slot &one, int count);
    void patch_signature(slot &one) const;
    bool find_difference(slot &one) const;
    void write_next(slot &one);
    void end_with(copy_end end, int error);
    size_t memory_size() const { return plan_.count * plan_.size * (job_.compare ? 2 : 1); }

    const copy_job &job_;
    block_plan plan_;
    uint64_t next_;
    block_queue queue_;
    void *memory_ = MAP_FAILED;
    std::vector<slot> slots_;
    copy_result result_;
};

copier::~copier()
{
    queue_.drain(); // an exception may have left transfers in flight
    if (memory_ != MAP_FAILED && !queue_.has_lost_bytes())
        munmap(memory_, memory_size());
}

// Mapped, not from the heap, so that these megabytes are returned to the system.
bool copier::get_memory()
{
    memory_ = mmap(nullptr, memory_size(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory_ == MAP_FAILED) {
        end_with(copy_end::failed, errno);
        return false;
    }
    char *next = static_cast<char *>(memory_);
    for (slot &one : slots_) {
        one.content = std::exchange(next, next + plan_.size);
        if (job_.compare)
            one.former = std::exchange(next, next + plan_.size);
    }
    return true;
}

// Blocks end in any order; the position is that of the first one that has not ended.
uint64_t copier::position() const
{
    uint64_t first = next_;
    for (const slot &one : slots_) {
        if (one.doing != slot::idle)
            first = std::min(first, one.offset);
    }
    return first;
}

// Only the first failure is reported.
void copier::end_with(copy_end end, int error)
{
    if (result_.end != copy_end::done)
        return;
    result_.end = end;
    result_.error = error;
}

void copier::start(slot &one)
{
    one.offset = next_;
    one.size = std::min(plan_.size, job_.end - next_);
    next_ += one.size;
    submit(one, slot::reading);
}

void copier::submit(slot &one, slot::step what)
{
    one.doing = what;
    block_transfer transfer = {.fd = job_.mirror, .bytes = one.content, .offset = one.offset, .owner = &one};
    transfer.size = static_cast<unsigned>(one.size);
    if (what == slot::reading) {
        transfer.fd = job_.source;
    } else if (what == slot::reading_mirror) {
        transfer.bytes = one.former;
    } else {
        transfer.is_write = true;
        transfer.bytes += one.first;
        transfer.offset += one.first;
        transfer.size = static_cast<unsigned>(one.last - one.first);
    }
    queue_.add(transfer);
}

void copier::patch_signature(slot &one) const
{
    if (job_.own_signature && one.offset == 0)
        memcpy(one.content + signature_offset, job_.own_signature->data(), job_.own_signature->size());
}

// Finds the next run of pages that differ, starting after the last one.
bool copier::find_difference(slot &one) const
{
    const auto differs = [&](uint64_t at) {
        return memcmp(one.content + at, one.former + at, std::min(compared_page, one.size - at)) != 0;
    };
    uint64_t first = one.last;
    while (first < one.size && !differs(first))
        first += compared_page;
    one.first = std::min(first, one.size);
    one.last = one.first;
    while (one.last < one.size && differs(one.last))
        one.last = std::min(one.last + compared_page, one.size);
    return one.first < one.last;
}

void copier::write_next(slot &one)
{
    if (job_.compare && !find_difference(one)) {
        one.doing = slot::idle;
        return;
    }
    if (!job_.compare) {
        one.first = 0;
        one.last = one.size;
    }
    submit(one, slot::writing);
}

// The slot stays in use, so that the position does not pass the failed block.
void copier::fail(slot &one, int count)
{
    const copy_end whose = one.doing == slot::reading ? copy_end::source_failed : copy_end::mirror_failed;
    // A short transfer means that the device has become smaller.
    if (result_.end == copy_end::done)
        result_.failed_at = one.offset;
    end_with(whose, count < 0 ? -count : EIO);
    one.doing = slot::failed;
}

void copier::complete(slot &one, int count)
{
    const uint64_t wanted = one.doing == slot::writing ? one.last - one.first : one.size;
    if (count < 0 || static_cast<uint64_t>(count) != wanted) {
        fail(one, count);
        return;
    }
    if (one.doing == slot::writing) {
        result_.written += wanted;
        if (!job_.compare || one.last == one.size) {
            one.doing = slot::idle;
            return;
        }
    }
    if (result_.end != copy_end::done) {
        one.doing = slot::failed;
    } else if (one.doing == slot::reading && job_.compare) {
        patch_signature(one);
        one.last = 0;
        submit(one, slot::reading_mirror);
    } else {
        if (one.doing == slot::reading)
            patch_signature(one);
        write_next(one);
    }
}

copy_result copier::run()
{
    if (!get_memory())
        return result_;
    while (has_work() || !queue_.is_empty()) {
        for (slot &one : slots_) {
            if (one.doing == slot::idle && has_work())
                start(one);
        }
        const ended_transfer ended = queue_.take();
        if (!ended.owner) {
            end_with(copy_end::failed, -ended.count);
            break;
        }
        complete(*static_cast<slot *>(ended.owner), ended.count);
        if (has_work() && !job_.go_on(position()))
            end_with(copy_end::stopped, 0);
    }
    result_.position = position();
    return result_;
}

} // namespace

copy_result copy_blocks(const copy_job &job)
{
    return copier(job).run();
}
