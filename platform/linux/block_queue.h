// Reads and writes of whole blocks, several of them on their way at once: through io_uring, or, where the
// kernel or a policy does not grant one, one after the other with pread and pwrite.
#pragma once

#include <liburing.h>

#include <cstdint>
#include <deque>

struct block_transfer {
    int fd = -1; // not O_NONBLOCK
    bool is_write = false;
    char *bytes = nullptr;
    unsigned size = 0;
    uint64_t offset = 0;
    void *owner = nullptr; // comes back when it has ended
};

struct ended_transfer {
    void *owner = nullptr;
    int count = 0; // bytes, or a negative errno
};

// For one thread.
class block_queue {
public:
    // DEPTH: how many transfers may be added before one has ended.
    explicit block_queue(unsigned depth);
    ~block_queue();
    block_queue(const block_queue &) = delete;
    block_queue &operator=(const block_queue &) = delete;

    void add(const block_transfer &transfer);

    bool is_empty() const { return waiting_.empty() && in_kernel_ == 0 && ended_.empty(); }

    // Waits until one has ended, successfully or not; the queue must not be empty. Null as owner: the kernel
    // does not tell any more how its transfers end.
    ended_transfer take();

    // That has happened: the kernel may use the bytes at any time, so they must never be freed.
    bool has_lost_bytes() const { return lost_; }

private:
    void submit();
    void wait();
    void fail_waiting(int error);

    bool has_ring_ = false;
    bool lost_ = false;
    int broken_ = 0; // why the ring takes nothing any more
    io_uring ring_{};
    std::deque<block_transfer> waiting_; // the first of them may have been prepared for the ring
    unsigned prepared_ = 0;
    unsigned in_kernel_ = 0;
    std::deque<ended_transfer> ended_;
};
