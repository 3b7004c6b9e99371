// Runs in the kernel at the end of every request of the tracked disk: sets a bit for each page that was
// written and adds up how much that was.
//
// The kernel passes here before it adds the request to the disk's own counters (blk_update_request and
// blk_complete_request in the kernel's block/blk-mq.c), and before anybody hears that the request has ended.
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
    struct bio *bio;
    unsigned int cmd_flags;
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
    __uint(max_entries, 1); // set by the loader: one for each processor
    __type(key, __u32);
    __type(value, struct write_sums);
} sums SEC(".maps");

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

SEC("tp_btf/block_rq_complete")
int BPF_PROG(on_complete, struct request *rq, int error, unsigned int bytes)
{
    const struct gendisk *of = rq->q->disk;
    if (!of || of->major != disk.major || of->first_minor != disk.minor)
        return 0;
    const __u32 op = rq->cmd_flags & OP_MASK;
    if ((op & 1) == 0)
        return 0;
    const __u32 key = bpf_get_smp_processor_id();
    struct write_sums *sum = bpf_map_lookup_elem(&sums, &key);
    if (!sum)
        return 0;
    const __u64 sectors = bytes >> 9;
    // The bits come first: whoever sees a sum sees the bits of what it counts.
    if (!mark_request(rq, op, sectors))
        __sync_fetch_and_add(&sum->unplaced, 1);
    if (is_counted(op))
        __sync_fetch_and_add(&sum->sectors, sectors);
    __sync_fetch_and_add(&sum->events, 1);
    return 0;
}
