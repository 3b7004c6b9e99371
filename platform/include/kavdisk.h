/* libkavdisk.so.1: the disks of this host, their partitions, and the search for new ones.
 *
 * Every function may be called from several threads at once, and may take seconds. */
#ifndef KAVDISK_H
#define KAVDISK_H

#include "kav_list.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One partition of a device. Owned, with its texts, by the device record. */
struct kavdisk_part {
    struct kav_list link; /* in kavdisk_dev.parts */
    char *name;           /* kernel name, e.g. sdb1 */
    char *guid;           /* may be null */
    char *fs;             /* file-system name, may be null */
    uint64_t size;        /* bytes */
    uint64_t used;        /* bytes */
};

static_assert(sizeof(struct kavdisk_part) == 56, "kavdisk_part: size");
static_assert(offsetof(struct kavdisk_part, link) == 0, "kavdisk_part: link");
static_assert(offsetof(struct kavdisk_part, name) == 16, "kavdisk_part: name");
static_assert(offsetof(struct kavdisk_part, guid) == 24, "kavdisk_part: guid");
static_assert(offsetof(struct kavdisk_part, fs) == 32, "kavdisk_part: fs");
static_assert(offsetof(struct kavdisk_part, size) == 40, "kavdisk_part: size");
static_assert(offsetof(struct kavdisk_part, used) == 48, "kavdisk_part: used");

/* One block device. Records and texts come from malloc and are freed by kavdisk_free_devs. */
struct kavdisk_dev {
    struct kav_list link;  /* in the caller's list */
    char *name;            /* kernel name, e.g. sdb; null for a device without a name */
    char *vendor;          /* may be null; blanks are not trimmed */
    char *model;           /* may be null; blanks are not trimmed */
    char *path;            /* e.g. /dev/sdb */
    uint64_t sectors;      /* size in sectors of 512 bytes */
    uint32_t state;        /* the library's state word; 0: neither to be reported nor to be touched */
    uint32_t reserved;     /* 0 */
    struct kav_list parts; /* of struct kavdisk_part */
};

static_assert(sizeof(struct kavdisk_dev) == 80, "kavdisk_dev: size");
static_assert(offsetof(struct kavdisk_dev, link) == 0, "kavdisk_dev: link");
static_assert(offsetof(struct kavdisk_dev, name) == 16, "kavdisk_dev: name");
static_assert(offsetof(struct kavdisk_dev, vendor) == 24, "kavdisk_dev: vendor");
static_assert(offsetof(struct kavdisk_dev, model) == 32, "kavdisk_dev: model");
static_assert(offsetof(struct kavdisk_dev, path) == 40, "kavdisk_dev: path");
static_assert(offsetof(struct kavdisk_dev, sectors) == 48, "kavdisk_dev: sectors");
static_assert(offsetof(struct kavdisk_dev, state) == 56, "kavdisk_dev: state");
static_assert(offsetof(struct kavdisk_dev, reserved) == 60, "kavdisk_dev: reserved");
static_assert(offsetof(struct kavdisk_dev, parts) == 64, "kavdisk_dev: parts");

/* Appends one record per device to DEVS, a list that the caller has initialised.
 * FLAG 1: with partitions and their file systems; 0: devices only. Returns 0, or -1; errno is ENOMEM if
 * memory ran out. */
int kavdisk_get_devs(struct kav_list *devs, int flag);

/* Frees every record of the list and leaves the head empty. */
void kavdisk_free_devs(struct kav_list *devs);

/* Asks the kernel to look for new devices. FLAG is always 0. Returns 1 on success, 0 on failure. */
int kavdisk_rescan_dev(int flag);

/* Partition-table type of a device: 0 none or unknown, 1 MBR, 2 GPT. */
uint32_t get_part_type(const char *path);

#ifdef __cplusplus
}
#endif

#endif
