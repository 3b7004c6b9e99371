// A writer that numbers its blocks and flushes each of them before it writes the next, so that a copy of what
// it writes to shows of which moment it is: it has all blocks up to some number, and nothing later but parts
// of the one that was on its way.
#pragma once

#include "base/fd.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

struct block_ring {
    size_t block;   // bytes, at least 512, a power of two
    uint64_t begin; // its place in the disk or file
    bool is_direct; // past the page cache
};

constexpr uint64_t ring_slots = 64; // blocks of each ring; each number has its slot

class numbered_writer {
public:
    numbered_writer(const std::string &path, const block_ring &ring);

    uint64_t flushed() const { return flushed_; } // the newest number that is on the disk for certain
    const block_ring &ring() const { return ring_; }

private:
    void write(const std::stop_token &end);

    block_ring ring_;
    unique_fd file_;
    std::atomic<uint64_t> flushed_{0};
    std::jthread thread_;
};

// "" if the ring in a copy at PATH holds all blocks up to some number, FLUSHED or newer; else what is wrong.
std::string complaint_about(const std::string &path, const block_ring &ring, uint64_t flushed);
