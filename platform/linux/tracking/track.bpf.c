// Runs in the kernel at the beginning and the end of every request of the tracked disk: sets a bit for each
// page that was written and adds up how much that was.
//
// At the end of a request the kernel passes here before it adds the request to the disk's own counters
// (blk_update_request and blk_complete_request in the kernel's block/blk-mq.c), and before anybody hears that
// it has ended.
//
// Ends can be missed: the kernel skips a program that runs already on that processor, so an end in an
// interrupt that comes upon another end is not seen, and some kernels run no program in interrupts upon
// certain threads. That is why beginnings are noted too. A request whose end was missed stays under way until
// its number is given to another one; then it has ended.
#include "platform/linux/tracking/shared.h"

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>
#include <bpf/bpf_tracing.h>
#include <linux/bpf.h>
#include <stdbool.h>

// The members of kernel structures that are needed; the loader finds their places in the running kernel.
#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)
struct gendisk {
    int major;
    int first_minor;
};
struct request_queue {
    struct gendisk *disk;
};
struct blk_mq_hw_ctx {
    unsigned int queue_num;
};
struct bvec_iter {
    __u64 bi_sector;
    unsigned int bi_size;
};
struct bio {
    struct bio *bi_next;
    struct bvec_iter bi_iter;
};
struct request {
    struct request_queue *q;
    struct blk_mq_hw_ctx *mq_hctx;
    struct bio *bio;
    unsigned int cmd_flags;
    int tag;
    int internal_tag;
    unsigned int __data_len;
    __u64 __sector;
};
#pragma clang attribute pop

// The numbers are looked up by name when the program is loaded.
enum req_op { REQ_OP_WRITE, REQ_OP_DISCARD, REQ_OP_SECURE_ERASE, REQ_OP_WRITE_ZEROES };
#define op_value(name) bpf_core_enum_value(enum req_op, name)

// Only the low byte of cmd_flags is the operation; an odd one sends data or changes the disk.
#define OP_MASK 0xff
#define MOST_BIOS 512

// The kernel gives the helpers of these programs only to those whose licence it knows.
char licence_text[] SEC("license") = "Dual MIT/GPL";

const volatile struct tracked_disk disk;

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, 1); // set by the loader
    __type(key, __u32);
    __type(value, __u64);
} dirty SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, 1); // set by the loader
    __type(key, __u32);
    __type(value, __u64);
} overview SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, 1); // set by the loader: one for each processor
    __type(key, __u32);
    __type(value, struct write_sums);
} sums SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, 1); // set by the loader
    __type(key, __u32);
    __type(value, struct write_under_way);
} under_way SEC(".maps");

// Not zero: the process that reads the sums sleeps.
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u64);
} sleeper SEC(".maps");

// Wakes it. What is in it means nothing.
struct {
    __uint(type, BPF_MAP_TYPE_RINGBUF);
    __uint(max_entries, 4096); // set by the loader: a page of memory
} alarm SEC(".maps");

struct page_range {
    __u64 first;
    __u64 last;
};

static long mark_word(__u32 index, void *context)
{
    const struct page_range *pages = context;
    const __u64 word = (pages->first >> 6) + index;
    __u64 mask = ~0ULL;
    if (word == pages->first >> 6)
        mask &= ~0ULL << (pages->first & 63);
    if (word == pages->last >> 6)
        mask &= ~0ULL >> (63 - (pages->last & 63));
    const __u32 key = word;
    __u64 *bits = bpf_map_lookup_elem(&dirty, &key);
    if (!bits)
        return 1;
    __sync_fetch_and_or(bits, mask);
    // After the marks: whoever clears a bit of the overview looks at the marks then.
    const __u32 group = word >> OVERVIEW_SHIFT;
    const __u32 overview_key = group >> 6;
    __u64 *groups = bpf_map_lookup_elem(&overview, &overview_key);
    const __u64 bit = 1ULL << (group & 63);
    if (groups && (*groups & bit) == 0)
        __sync_fetch_and_or(groups, bit);
    return 0;
}

// False if that is not on the disk as it was when it was attached.
static __always_inline bool mark(__u64 sector, __u64 sectors)
{
    if (sectors == 0)
        return true;
    struct page_range pages = {sector >> disk.page_shift, (sector + sectors - 1) >> disk.page_shift};
    if (pages.last >> 6 >= disk.words)
        return false;
    const __u32 words = (pages.last >> 6) - (pages.first >> 6) + 1;
    if (words == 1)
        mark_word(0, &pages);
    else
        bpf_loop(words, mark_word, &pages, 0);
    return true;
}

struct bio_walk {
    struct bio *next;
    bool failed;
};

static long mark_bio(__u32 index, void *context)
{
    struct bio_walk *walk = context;
    struct bio *bio = walk->next;
    if (!bio)
        return 1;
    if (!mark(BPF_CORE_READ(bio, bi_iter.bi_sector), BPF_CORE_READ(bio, bi_iter.bi_size) >> 9))
        walk->failed = true;
    walk->next = BPF_CORE_READ(bio, bi_next);
    return 0;
}

// A discard may have several ranges, each in a bio of its own. Calls of bpf_loop, since the verifier would
// follow each turn of a plain loop.
static __always_inline bool mark_each_bio(struct bio *first)
{
    struct bio_walk walk = {first, false};
    bpf_loop(MOST_BIOS, mark_bio, &walk, 0);
    return !walk.next && !walk.failed;
}

static __always_inline bool mark_request(struct request *rq, __u32 op, __u64 sectors)
{
    if (op == op_value(REQ_OP_WRITE) || op == op_value(REQ_OP_WRITE_ZEROES))
        return mark(rq->__sector, sectors);
    if (op != op_value(REQ_OP_DISCARD) && op != op_value(REQ_OP_SECURE_ERASE))
        return false;
    struct bio *bio = rq->bio;
    return bio && BPF_CORE_READ(bio, bi_next) ? mark_each_bio(bio) : mark(rq->__sector, sectors);
}

static __always_inline bool is_counted(__u32 op)
{
    return op == op_value(REQ_OP_WRITE) || op == op_value(REQ_OP_WRITE_ZEROES) ||
           op == op_value(REQ_OP_DISCARD) || op == op_value(REQ_OP_SECURE_ERASE);
}

static __always_inline bool changes_our_disk(struct request *rq)
{
    const struct gendisk *of = rq->q->disk;
    return of && of->major == disk.major && of->first_minor == disk.minor && (rq->cmd_flags & 1) != 0;
}

static __always_inline struct write_sums *our_sums(void)
{
    const __u32 key = bpf_get_smp_processor_id();
    return bpf_map_lookup_elem(&sums, &key);
}

// Called after the sums: the process looks at them once it has said that it sleeps. One write wakes it, the
// others only look here.
static __always_inline void wake_reader(void)
{
    const __u32 key = 0;
    volatile __u64 *sleeps = bpf_map_lookup_elem(&sleeper, &key);
    if (!sleeps || *sleeps == 0)
        return;
    __u64 slept = __sync_lock_test_and_set(sleeps, 0);
    if (slept != 0)
        bpf_ringbuf_output(&alarm, &slept, sizeof slept, BPF_RB_FORCE_WAKEUP);
}

// Null for a number that is larger than there are places. Such a request is only seen at its end.
static __always_inline struct write_under_way *place_of(struct request *rq)
{
    const bool is_scheduled = rq->internal_tag >= 0;
    const __u32 number = is_scheduled ? rq->internal_tag : rq->tag;
    if (number >= NUMBERS_PER_KIND)
        return NULL;
    const __u32 key =
        rq->mq_hctx->queue_num * PLACES_PER_QUEUE + (is_scheduled ? number : NUMBERS_PER_KIND + number);
    return bpf_map_lookup_elem(&under_way, &key);
}

// The request in that place has ended, and that was not seen. Its bits come before its place is free.
static __always_inline void end_unseen(struct write_under_way *place, struct write_sums *sum)
{
    const __u64 sectors = place->sectors;
    const __u64 sector = place->sector;
    if (sectors == 0)
        return;
    if (sector == UNKNOWN_SECTOR || !mark(sector, sectors))
        __sync_fetch_and_add(&sum->unplaced, 1);
    // The process that reads the places may have done this already, when nothing else was under way.
    const __u64 left = __sync_lock_test_and_set(&place->sectors, 0);
    if (sector != UNKNOWN_SECTOR)
        __sync_fetch_and_add(&sum->sectors, left);
    __sync_fetch_and_add(&sum->events, 1);
}

// The bits of these sectors are set.
static __always_inline void end_seen(struct write_under_way *place, __u64 sector, __u64 sectors,
                                     struct write_sums *sum)
{
    const __u64 left = place->sectors;
    if (left == 0)
        return;
    if (place->sector == UNKNOWN_SECTOR || (place->sector == sector && left == sectors)) {
        __sync_lock_test_and_set(&place->sectors, 0);
    } else if (place->sector == sector && left > sectors) {
        place->sector = sector + sectors;
        place->sectors = left - sectors;
    } else {
        end_unseen(place, sum); // an earlier one, and the beginning of this one was not seen either
    }
}

// The ranges of a discard find no room in a place. If its end is missed, the sums say so.
static __always_inline bool has_ranges(struct request *rq)
{
    struct bio *bio = rq->bio;
    return (rq->cmd_flags & OP_MASK) == op_value(REQ_OP_DISCARD) && bio && BPF_CORE_READ(bio, bi_next);
}

SEC("tp_btf/block_rq_issue")
int BPF_PROG(on_issue, struct request *rq)
{
    if (!changes_our_disk(rq))
        return 0;
    struct write_sums *sum = our_sums();
    struct write_under_way *place = place_of(rq);
    if (!sum || !place)
        return 0;
    end_unseen(place, sum);
    const bool is_placed = is_counted(rq->cmd_flags & OP_MASK);
    if (!is_placed)
        __sync_fetch_and_add(&sum->unplaced, 1);
    if (!has_ranges(rq)) {
        place->sector = is_placed ? rq->__sector : UNKNOWN_SECTOR;
        __sync_lock_test_and_set(&place->sectors, is_placed ? rq->__data_len >> 9 : 1);
    }
    __sync_fetch_and_add(&sum->begun, 1);
    wake_reader();
    return 0;
}

// It has not ended, and will begin again.
SEC("tp_btf/block_rq_requeue")
int BPF_PROG(on_requeue, struct request *rq)
{
    struct write_under_way *place = changes_our_disk(rq) ? place_of(rq) : NULL;
    if (place)
        __sync_lock_test_and_set(&place->sectors, 0);
    return 0;
}

SEC("tp_btf/block_rq_complete")
int BPF_PROG(on_complete, struct request *rq, int error, unsigned int bytes)
{
    if (!changes_our_disk(rq))
        return 0;
    struct write_sums *sum = our_sums();
    if (!sum)
        return 0;
    const __u32 op = rq->cmd_flags & OP_MASK;
    const __u64 sectors = bytes >> 9;
    // The bits come first: whoever sees a sum, or a free place, sees the bits of what it stands for.
    if (!mark_request(rq, op, sectors))
        __sync_fetch_and_add(&sum->unplaced, 1);
    struct write_under_way *place = place_of(rq);
    if (place && sectors != 0)
        end_seen(place, rq->__sector, sectors, sum);
    if (is_counted(op))
        __sync_fetch_and_add(&sum->sectors, sectors);
    __sync_fetch_and_add(&sum->events, 1);
    wake_reader();
    return 0;
}
