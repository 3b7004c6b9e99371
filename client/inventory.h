// The host inventory. Filled once at start, then refreshed by the scan thread; readers hold its lock and
// always see complete lists.
#pragma once

#include "base/text.h"
#include "client/inventory_records.h"

#include <cstdint>
#include <list>
#include <mutex>
#include <string>

struct qel_inventory_t {
    const char *id = nullptr; // points to the client record's guid, which does not change after start
    optional_text hostname;
    optional_text alias;
    optional_text osver;
    uint32_t systype = 0;
    int32_t dboem = 0; // the host's databases, one bit each
    std::list<qel_ip_t> ips;
    std::list<qel_disk_t> disks;
    std::list<qel_chn_t> chns;
    std::list<qel_backup_t> backups;
    std::list<qel_db_t> dbs;
    std::mutex lock; // guards everything above; lock order: docs/architecture.md
};

extern qel_inventory_t g_inventory;

// Locks the inventory until the returned guard is unlocked or destroyed.
[[nodiscard]] std::unique_lock<std::mutex> qel_inventory_lock();

// Fills the inventory. Called once, with g_client set and before any thread starts; does not lock the
// inventory. Returns 0, or -1 if the databases cannot be listed.
int qel_inventory_init();

qel_inventory_t *qel_get_inventory();

// Refreshes the inventory on the calling thread, which holds neither the record's nor the inventory's lock.
// Slow work is done without the inventory's lock. Each of the two steps takes it to swap lists; the second
// also holds it while a disk without identity gets its signature. TRACED: with the scan thread's debug lines.
void refresh_inventory(bool traced);

// The same for a command. Returns qel_get_inventory().
qel_inventory_t *qel_rescan_inventory();

// Replaces the inventory's mirror relationships by those that twinvault reports now. The caller holds neither
// the record's nor the inventory's lock.
void qel_refresh_backups();

// Replaces the inventory's databases by those that the CDP agent library lists now. Returns 0, or -1 after an
// error line if it cannot list them; they then stay as they are. The caller does not hold the inventory's
// lock.
int qel_refresh_databases();

// True if the inventory has a disk or a partition with that GUID. The caller holds the inventory's lock.
bool qel_has_disk(const optional_text &guid);

// The same after a refresh; the caller holds neither the record's nor the inventory's lock.
bool qel_is_disk_present(const optional_text &guid);

// The first relationship of that source disk; null if there is none. The caller holds the inventory's lock.
qel_backup_t *qel_find_backup(const std::string &src_guid);

// How far the mirrors of a disk are; none: it has no mirror.
enum class mirror_level { none, behind, level };

// The worst level of the relationships whose END (src_guid or dest_guid) is GUID. The caller holds the
// inventory's lock.
mirror_level qel_mirror_level(std::string qel_backup_t::*end, const optional_text &guid);
