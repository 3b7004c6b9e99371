#include "platform/linux/mirror/block_queue.h"

#include <unistd.h>

#include <cerrno>

namespace {

constexpr int most_attempts = 1000; // one second in total
constexpr useconds_t pause_us = 1000;

bool is_passing(int error)
{
    return error == EINTR || error == EAGAIN || error == EBUSY;
}

void prepare(io_uring_sqe *entry, const block_transfer &one)
{
    if (one.is_write)
        io_uring_prep_write(entry, one.fd, one.bytes, one.size, one.offset);
    else
        io_uring_prep_read(entry, one.fd, one.bytes, one.size, one.offset);
    io_uring_sqe_set_data(entry, one.owner);
}

ended_transfer transfer_now(const block_transfer &one)
{
    ssize_t count = -1;
    do {
        const auto offset = static_cast<off_t>(one.offset);
        count = one.is_write ? pwrite(one.fd, one.bytes, one.size, offset)
                             : pread(one.fd, one.bytes, one.size, offset);
    } while (count < 0 && errno == EINTR);
    return {one.owner, count < 0 ? -errno : static_cast<int>(count)};
}

} // namespace

// What a full queue needs, and a place for the loss of results: nothing that is in flight waits for memory.
block_queue::block_queue(unsigned depth)
{
    waiting_.reserve(depth);
    ended_.reserve(depth + 1);
    has_ring_ = io_uring_queue_init(depth, &ring_, 0) == 0;
}

block_queue::~block_queue()
{
    drain();
    if (has_ring_)
        io_uring_queue_exit(&ring_); // does not wait for transfers in flight
}

void block_queue::drain()
{
    while (!is_empty())
        take();
}

void block_queue::add(const block_transfer &transfer)
{
    if (broken_ == 0)
        waiting_.push_back(transfer);
    else
        ended_.push_back({transfer.owner, -broken_});
}

ended_transfer block_queue::take()
{
    while (ended_.empty()) {
        if (!has_ring_) {
            ended_.push_back(transfer_now(waiting_.front()));
            waiting_.erase(waiting_.begin());
            continue;
        }
        submit();
        if (ended_.empty())
            wait();
    }
    const ended_transfer one = ended_.front();
    ended_.erase(ended_.begin());
    return one;
}

// Returns with a transfer in flight, or one that has ended.
void block_queue::submit()
{
    for (int attempt = 0; !waiting_.empty(); attempt++) {
        while (prepared_ < waiting_.size()) {
            io_uring_sqe *entry = io_uring_get_sqe(&ring_);
            if (!entry)
                break; // submit the prepared ones first
            prepare(entry, waiting_[prepared_++]);
        }
        const int count = io_uring_submit(&ring_);
        for (int i = 0; i < count; i++)
            waiting_.erase(waiting_.begin()), --prepared_, ++in_kernel_;
        if (count > 0)
            continue;
        const int error = count < 0 ? -count : EAGAIN;
        if (is_passing(error) && in_kernel_ > 0)
            return; // there may be room when one has ended
        if (!is_passing(error) || attempt >= most_attempts) {
            fail_waiting(error);
            return;
        }
        usleep(pause_us);
    }
}

void block_queue::wait()
{
    if (in_kernel_ == 0)
        return;
    io_uring_cqe *done = nullptr;
    int result = -1;
    do
        result = io_uring_wait_cqe(&ring_, &done);
    while (is_passing(-result));
    if (result < 0) { // the owners are unknown, and so is when the kernel will be done
        lost_ = true;
        in_kernel_ = 0;
        ended_.push_back({nullptr, result});
        return;
    }
    ended_.push_back({io_uring_cqe_get_data(done), done->res});
    io_uring_cqe_seen(&ring_, done);
    --in_kernel_;
}

// Nothing more is submitted, because entries that are left in the ring would go with it.
void block_queue::fail_waiting(int error)
{
    for (const block_transfer &one : waiting_)
        ended_.push_back({one.owner, -error});
    waiting_.clear();
    prepared_ = 0;
    broken_ = error;
}
