/* libtw.so.1: host-based mirroring of local disks (twinvault), and the SCSI identity of a disk. */
#ifndef TW_H
#define TW_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One mirror relationship. All texts are NUL-terminated. */
struct tw_relationship {
    struct tw_relationship *next; /* null ends the chain */
    uint32_t percent;             /* synchronisation progress */
    char sync_state[32];          /* "Sync Finished", "Sync Cancelled", "UnSync", "Sync On", "Recovery On" */
    char status[32];              /* "Stopped" or another text, e.g. "Running" */
    char src_link[32];            /* "Up" when healthy, else "Down" */
    char src_path[64];            /* e.g. /dev/sdb */
    char src_guid[64];
    char dest_link[32]; /* "Up" when healthy, else "Down" */
    char dest_path[64]; /* not read by the daemon */
    char dest_guid[64];
    uint32_t reserved; /* 0 */
};

static_assert(sizeof(struct tw_relationship) == 400, "tw_relationship: size");
static_assert(offsetof(struct tw_relationship, next) == 0, "tw_relationship: next");
static_assert(offsetof(struct tw_relationship, percent) == 8, "tw_relationship: percent");
static_assert(offsetof(struct tw_relationship, sync_state) == 12, "tw_relationship: sync_state");
static_assert(offsetof(struct tw_relationship, status) == 44, "tw_relationship: status");
static_assert(offsetof(struct tw_relationship, src_link) == 76, "tw_relationship: src_link");
static_assert(offsetof(struct tw_relationship, src_path) == 108, "tw_relationship: src_path");
static_assert(offsetof(struct tw_relationship, src_guid) == 172, "tw_relationship: src_guid");
static_assert(offsetof(struct tw_relationship, dest_link) == 236, "tw_relationship: dest_link");
static_assert(offsetof(struct tw_relationship, dest_path) == 268, "tw_relationship: dest_path");
static_assert(offsetof(struct tw_relationship, dest_guid) == 332, "tw_relationship: dest_guid");
static_assert(offsetof(struct tw_relationship, reserved) == 396, "tw_relationship: reserved");

/* The relationship whose source is GUID; for a null GUID the chain of all of them. Null if there is
 * none; null with errno ENOMEM if memory ran out. The caller releases the chain with tw_disk_stat_release. */
struct tw_relationship *tw_disk_stat(const char *guid);

/* Frees a whole chain; null is ignored. */
void tw_disk_stat_release(struct tw_relationship *chain);

/* Each of these four returns a negative value on failure; the flag of tw_disk_resync is always 0. */
int tw_disk_protect(const char *local_guid, const char *mirror_guid);
int tw_disk_unprotect(const char *local_guid);
int tw_disk_resync(const char *local_guid, int flag);
int tw_disk_stop_sync(const char *local_guid);

/* Writes the NUL-terminated SCSI GUID text of the device into BUFFER of SIZE bytes.
 * Negative on failure; the buffer is then untouched. */
int tw_scsi_get_guid(const char *path, char *buffer, int size);

#ifdef __cplusplus
}
#endif

#endif
