// Whether a mirror is level with its disk, proven by the counters of both and by the tracker.
//
// A pass reads the disk's counter of written and discarded sectors (C0), takes the marked pages, reads each
// of them and writes it to the mirror, flushes the mirror, and reads the tracker's sum of sectors (S) and the
// counter again (C1). The mirror is level if and only if
//
//   1. C0 = C1,
//   2. S - C1 is what it was when the tracker was attached (its base),
//   3. no request has been seen whose place is unknown,
//   4. the mirror's own counter has moved by what this process wrote to it, and by nothing else.
//
// The kernel marks a page before it counts the write, and counts it before whoever wrote hears of it. So each
// write that C0 counts had marked its page before the marks were taken, and the page was read after the write
// had ended. By 1 no write ended since: what was read is what is there. By 2 and 3 no write that was counted
// went without its mark. By 4 nobody else changed the mirror. A write that is on its way at that moment may
// be on the mirror in part, as it may be on the disk after a crash.
//
// By the same order S - C1 is never smaller than the base when C0 = C1, unless the tracker missed something.
// It may be larger for the moment in which a write is tracked and not yet counted.
#pragma once

#include "platform/linux/mirror/copying.h"

// One pass over the marked pages. It begins when this is made.
class level_proof {
public:
    explicit level_proof(copying &work);

    enum verdict { level, behind, failed };

    // What was marked is on the mirror and flushed. After "level" the record says so. Failed: the disks are
    // compared as a whole next, and the log says why, or a counter cannot be read.
    verdict end();

private:
    bool account_for_mirror(uint64_t sectors);
    verdict weigh_books(const tracker_sums &sums, uint64_t source_sectors);
    void note_level(uint64_t source_sectors, uint64_t dest_sectors);

    copying &work_;
    std::optional<uint64_t> before_; // C0
};

// Whether the mirror, which was level at its record's marks, is so still. The caller holds its lock.
bool is_still_level(const mirror &one);

// Whether both disks are as they were when that record was level. A disk that cannot be read is not.
bool has_level_marks(const mirror_record &record);
