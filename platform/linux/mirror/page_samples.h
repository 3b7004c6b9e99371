// Knows a mirror again that was away. One that has only a signature may come back as an older copy, which
// somebody kept on purpose: then nothing is written to it. A few pages of each level mirror are remembered
// for that: some of the last that were copied, which an older copy lacks, and some others.
#pragma once

#include "platform/linux/mirror/locate_disk.h"

#include <chrono>
#include <string>
#include <vector>

struct sampled_page {
    uint64_t offset = 0; // bytes
    uint64_t checksum = 0;

    bool operator==(const sampled_page &) const = default;
};

// For the worker of one mirror.
class page_samples {
public:
    page_samples() = default;
    page_samples(const std::string &src_guid, const located_disk &mirror);

    // These bytes are about to be written: if some of them are remembered, all is forgotten first. False
    // after a log line; then they must not be written.
    bool make_way(uint64_t begin, uint64_t end);

    // The mirror is level and flushed: remembers it, unless that was done shortly before and it is not
    // AT_REST.
    void remember(int mirror, bool at_rest);

private:
    std::vector<uint64_t> choose() const;

    std::string src_guid_;
    located_disk mirror_;
    std::vector<sampled_page> pages_;
    std::vector<uint64_t> recent_; // offsets of pages that were copied last
    size_t next_recent_ = 0;
    bool is_outdated_ = true;
    std::chrono::steady_clock::time_point remembered_{};
};

// "" if the mirror of that source is the one that is remembered, or nothing is. FD: opened for direct reads.
std::string objection_to_copy(const std::string &src_guid, const located_disk &mirror, int fd);

// From now on any mirror of that source may be written to. False after a log line.
bool forget_samples(const std::string &src_guid);
