// Knows which pages of a disk have been written since they were last taken, without looking at the disk.
//
// Works for disks whose requests the kernel's block layer completes itself (SCSI, virtio, loop, NVMe without
// multipath). A tracker goes on in the kernel when this process ends. For one thread; sums() for any.
#pragma once

#include "platform/linux/tracking/program.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct tracker_sums {
    uint64_t events = 0; // requests that have ended
    uint64_t sectors = 0;
    uint64_t unplaced = 0;
    uint64_t begun = 0; // requests that have begun
};

// Requests that have begun and whose end has not been seen.
struct under_way_sums {
    uint64_t sectors = 0;
    bool is_unknown = false; // one of them may change anything
};

// How much of what may differ on a mirror its marks cover.
enum tracker_coverage : uint64_t {
    covers_nothing, // all of the mirror may differ
    covers_begun,   // also what a full copy or pass, which has begun since, has not reached
    covers_all,     // only the pages that are marked or taken
};

// What the caller keeps beside the bits. It lives as long as they do: across processes, not across a reboot.
struct tracker_facts {
    uint64_t version = 0;  // of the program; 0: not kept yet
    int64_t base = 0;      // tracked sectors minus those that the disk counts
    uint64_t unplaced = 0; // requests in an unknown place that a full pass has dealt with since
    uint64_t coverage = covers_nothing;
    uint64_t settled = 0;     // sectors that the mirror counted when a pass ended
    uint64_t announced = 0;   // sectors that have been written to it since, or are about to be
    uint64_t unseen = 0;      // sectors of requests whose end was missed, and that are under way no more
    char source_device[40]{}; // sequence numbers of the two devices, NUL-terminated
    char mirror_device[40]{};
    uint64_t page = 0; // bytes: what a bit stands for
    uint64_t form = 0; // MAPS_FORM
};
static_assert(sizeof(tracker_facts) <= facts_size);

struct page_run {
    uint64_t begin = 0; // bytes
    uint64_t end = 0;
};

class write_tracker {
public:
    // Goes on with the tracker that is pinned under KEY, if it is of that very device with that page size (in
    // bytes, a power of two of at least 4096), else attaches a new one. Null with the reason in WHY.
    static std::unique_ptr<write_tracker> open(const std::string &key, const std::string &disk_name,
                                               uint64_t disk_size, uint64_t page, std::string *why);

    // A new one has no facts, and does not outlive this process, until keep() is called.
    bool is_new() const { return facts().version == 0; }
    void keep();

    // What another version of the program knows of the disk; it goes on until keep() is called. Null: there
    // is none.
    write_tracker *former() const { return former_.get(); }
    // Marks what the former one has marked or taken, and knows of the mirror what it knew.
    void take_over_former();

    uint64_t page_size() const { return page_size_; } // bytes

    tracker_facts &facts() const { return *maps_.facts.values<tracker_facts>(); }
    tracker_sums sums() const;

    // The next request that begins or ends makes the alarm readable, once. Look at the sums after this and
    // before you wait for it.
    void set_alarm();
    int alarm() const { return maps_.alarm.fd(); }

    // Marks the pages of all writes that are under way: those whose end is missed are among them.
    under_way_sums mark_under_way();
    // All that is under way has ended: counts it. The caller knows from the kernel that nothing is.
    void end_under_way();
    // Nothing is known any more of what is under way. Everything is compared next.
    void forget_under_way();

    // Moves the marked pages to those that are taken. A page that is written meanwhile is marked again.
    // False if no page is taken then.
    bool take();
    // The first run of taken pages at or after that byte, at most LIMIT bytes long; null: none.
    std::optional<page_run> next_taken(uint64_t from, uint64_t limit) const;
    // The taken pages are on the mirror for good.
    void forget_taken();

    uint64_t pages_behind() const; // marked or taken; for any thread

private:
    struct home;
    write_tracker(program_maps maps, const home &where);
    static std::unique_ptr<write_tracker> open_kept(const home &where);
    static std::unique_ptr<write_tracker> open_former(const home &where);
    void mark(uint64_t sector, uint64_t sectors);
    void note_marks(uint64_t word);
    void make_room(size_t words);
    void take_group(uint64_t group);
    void note_taken(uint64_t word, uint64_t pages);
    uint64_t pages_marked(uint64_t group) const;
    std::span<write_under_way> places() const;

    program_maps maps_;
    std::string key_;
    std::unique_ptr<write_tracker> former_;
    uint64_t disk_size_;
    uint64_t page_size_;
    uint64_t words_;
    uint64_t queues_;
    std::vector<uint64_t> taken_; // the words that have taken pages, in ascending order
    std::atomic<uint64_t> pages_taken_ = 0;
};

// Ends the tracker under KEY, whichever process made it. Nothing happens if there is none.
void remove_tracker(const std::string &key);

// Ends all trackers but those under KEYS: of relationships whose records somebody has removed.
void remove_other_trackers(const std::vector<std::string> &keys);

// The smallest page, a power of two of at least 4096 bytes, with which the bits of such a disk need at most
// MEMORY bytes.
uint64_t tracking_page(uint64_t disk_size, uint64_t memory);
