// Writes random whole pages of a disk past the page cache, each with another content.
#pragma once

#include "base/deleter.h"
#include "base/fd.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <stop_token>
#include <string>

class page_writer {
public:
    explicit page_writer(const std::string &path);

    uint64_t size() const { return size_; } // of the disk
    // Somewhere behind the first page, which holds the disk's identity.
    void write();
    void write_at_rate(double pages_per_second, const std::stop_token &end);

private:
    unique_fd disk_;
    std::unique_ptr<char, deleter<free>> bytes_;
    uint64_t size_ = 0;
    std::mt19937_64 random_{1};
};
