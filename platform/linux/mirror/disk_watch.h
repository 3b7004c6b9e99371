// Looks whether a disk that is open is still the same and still counted, at one system call per look and
// fact: files of the kernel that are kept open fail once their device is gone.
#pragma once

#include "platform/linux/mirror/locate_disk.h"

class disk_watch {
public:
    disk_watch() = default;
    explicit disk_watch(const located_disk &disk);

    bool is_same() const;       // that device, with that size
    bool counts_writes() const; // the kernel keeps its counters
    // The sectors of its write_mark, read again. Null if the disk is gone.
    std::optional<uint64_t> sectors_changed() const;

private:
    std::string size_text_;
    std::string sequence_;
    unique_fd size_;
    unique_fd diskseq_;
    unique_fd iostats_;
    unique_fd counters_;
};
