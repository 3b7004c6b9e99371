// Whether a mirror is level with its disk, proven by the counters of both and by the tracker.
//
// A pass reads the disk's counter of written and discarded sectors (C0), marks the pages of the writes that
// are under way, takes the marked pages, reads each of them and writes it to the mirror, and reads the
// tracker's sum of sectors (S) and the counter again (C1). The mirror is level, once it has been flushed, if
// and only if
//
//   1. C0 = C1,
//   2. S - C1 is what it was when the tracker was attached (its base),
//   3. no request has been seen whose place is unknown,
//   4. the mirror's own counter has moved by what this process wrote to it, and by nothing else.
//
// It is the disk's level of the moment of C1. Whether the disk is still so, its counter tells.
//
// The kernel marks a page before it counts the write, and counts it before whoever wrote hears of it. So each
// write that C0 counts had marked its page before the marks were taken, and the page was read after the write
// had ended. By 1 no write ended since: what was read is what is there. By 2 and 3 no write that was counted
// went without its mark. By 4 nobody else changed the mirror. A write that is on its way at that moment may
// be on the mirror in part, as it may be on the disk after a crash.
//
// The end of a write can be missed (track.bpf.c says when). Such a write stays under way, so its page is
// taken too, and S is too small until its number is given to another write. To be missed by 2 a write would
// have to lose its beginning as well, while as many sectors are tracked and not yet counted; the second look
// is for that.
//
// By the order of marking and counting S - C1 is never smaller than the base when C0 = C1, unless the tracker
// missed something. It may be larger for the moment in which a write is tracked and not yet counted.
#pragma once

#include "platform/linux/mirror/copying.h"

// One pass over the marked pages. It begins when this is made.
class level_proof {
public:
    explicit level_proof(copying &work);

    enum verdict { level, behind, failed };

    // What was marked is on the mirror. After "level" it is flushed, and the record says so. Failed: the
    // disks are compared as a whole next, and the log says why, or a counter cannot be read.
    verdict end();

private:
    bool account_for_mirror(uint64_t sectors);
    bool may_pass(std::chrono::steady_clock::duration limit);
    verdict weigh_unplaced();
    verdict weigh_books(const tracker_sums &sums, uint64_t source_sectors);
    bool flush_mirror();
    void note_level(uint64_t source_sectors, uint64_t dest_sectors);

    copying &work_;
    std::optional<uint64_t> before_; // C0
    under_way_sums under_way_;       // right after that
};

// Whether the mirror, which was level at its record's marks, is so still. The caller holds its lock.
bool is_still_level(const mirror &one);

// Whether both disks are as they were when that record was level. A disk that cannot be read is not.
bool has_level_marks(const mirror_record &record);
