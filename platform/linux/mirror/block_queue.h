// Reads and writes of whole blocks, several at once through io_uring, or, where io_uring is not available,
// one after the other with pread and pwrite.
#pragma once

#include <liburing.h>

#include <cstdint>
#include <vector>

struct block_transfer {
    int fd = -1; // not O_NONBLOCK
    bool is_write = false;
    char *bytes = nullptr;
    unsigned size = 0;
    uint64_t offset = 0;
    void *owner = nullptr; // returned when the transfer has ended
};

struct ended_transfer {
    void *owner = nullptr;
    int count = 0; // bytes, or a negative errno
};

// For one thread.
class block_queue {
public:
    // DEPTH: how many transfers may be in the queue.
    explicit block_queue(unsigned depth);
    ~block_queue();
    block_queue(const block_queue &) = delete;
    block_queue &operator=(const block_queue &) = delete;

    void add(const block_transfer &transfer);

    bool is_empty() const { return waiting_.empty() && in_kernel_ == 0 && ended_.empty(); }

    // Waits until a transfer has ended, successfully or not; the queue must not be empty. A null owner means
    // that the results of the transfers in the kernel are lost.
    ended_transfer take();

    // Waits until the queue is empty.
    void drain();

    // True if results were lost: the kernel may still use the buffers, so they must never be freed.
    bool has_lost_bytes() const { return lost_; }

private:
    void submit();
    void wait();
    void fail_waiting(int error);

    bool has_ring_ = false;
    bool lost_ = false;
    int broken_ = 0; // why the ring accepts no more transfers
    io_uring ring_{};
    std::vector<block_transfer> waiting_; // the first ones may already be prepared in the ring
    unsigned prepared_ = 0;
    unsigned in_kernel_ = 0;
    std::vector<ended_transfer> ended_;
};
