// What the tracking program in the kernel and the process that loads it have in common.
#pragma once

#include <linux/types.h>

// Sums of one processor, alone in its cache line.
struct write_sums {
    __u64 events;   // completed requests that change what is on the disk
    __u64 sectors;  // of 512 bytes, written and discarded, as the disk's own counters count them
    __u64 unplaced; // requests that may have changed the disk in an unknown place
    __u64 begun;    // requests that will change it
    __u64 unused[4];
};

// A bit of the overview stands for so many words of marks, as a power of two. A disk of many terabytes has
// millions of words, and few of them have marks at a time.
#define OVERVIEW_SHIFT 6

// A request that has begun and whose end has not been seen. Each has a place of its own, by its number in its
// queue.
struct write_under_way {
    __u64 sector;  // the first one; UNKNOWN_SECTOR: it may change anything
    __u64 sectors; // 0: there is none
};

#define UNKNOWN_SECTOR (~0ULL)
// The kernel numbers requests per queue, those of an I/O scheduler apart from others.
#define NUMBERS_PER_KIND 1024
#define PLACES_PER_QUEUE (2 * NUMBERS_PER_KIND)

// Constants of the program, set before it is loaded.
struct tracked_disk {
    __s32 major;
    __s32 minor;
    __u32 page_shift; // log2 of the sectors of a page
    __u32 unused;
    __u64 words; // of 64 pages
};
