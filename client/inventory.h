// The host inventory: what this host is and has. Filled once at start, then refreshed by the scan thread;
// readers hold its lock and always see complete lists.
#pragma once

#include "base/text.h"

#include <netinet/in.h>

#include <cstdint>
#include <list>
#include <mutex>
#include <string>

struct qel_ip_t {
    in_addr_t addr = 0; // IPv4, network byte order
};

struct qel_part_t {
    optional_text name;
    optional_text guid;
    int32_t index = 0;
    uint64_t size = 0; // bytes
    uint64_t used = 0; // bytes
    optional_text fs;
    int32_t state = 0;
};

struct qel_disk_t {
    optional_text name;
    optional_text path;   // e.g. /dev/sdb
    optional_text guid;   // see disk_identity.h; only looked for when state is non-zero
    uint32_t is_lun = 0;  // 1: a volume that the storage system itself presents
    uint64_t size = 0;    // bytes
    uint64_t used = 0;    // not known for whole disks
    optional_text fs;     // likewise
    optional_text vendor; // vendor, one blank, model
    int32_t state = 0;    // the library's state word; 0: neither reported nor touched
    uint32_t type = 0;    // partition-table type, see get_part_type
    std::list<qel_part_t> parts;
};

enum qel_chn_type : uint32_t { chn_iscsi = 0, chn_fc = 1 };

struct qel_chn_t {
    uint32_t type = chn_iscsi;
    optional_text initiator; // IQN, or the FC port's WWN as sysfs has it, e.g. 0x21000024ff3c5a1e
    optional_text target;    // absent for FC
};

enum qel_backup_state : uint32_t {
    backup_synchronised = 0,
    backup_not_synchronised = 1,
    backup_synchronising = 2,
    backup_recovering = 3,
    backup_source_down = 4,
    backup_destination_down = 5,
};

// One twinvault relationship.
struct qel_backup_t {
    uint32_t type = 1;
    uint32_t state = backup_synchronised;
    int32_t percent = 0;
    int32_t speed = -1; // not known
    std::string src_guid;
    std::string dest_guid;
    std::string src_name;    // device name without "/dev/"
    uint64_t start_time = 0; // the console's start time of the mirror's CDP schedule, 0 for none
    uint64_t next_time = 0;  // its next run
    uint32_t interval = 0;   // seconds
};

// A database that the CDP agent library knows.
struct qel_db_t {
    optional_text instance_name;
    uint32_t db_type = 0; // 1: Oracle
    int32_t archive_log = 0;
    optional_text db_name;
    optional_text db_user;
    optional_text db_passwd;
    optional_text oracle_home;
    optional_text host;
    optional_text port;
};

struct qel_inventory_t {
    const char *id = nullptr; // the client record's guid, borrowed: it does not change after start
    optional_text hostname;
    optional_text alias;
    optional_text osver;
    uint32_t systype = 0;
    int32_t dboem = 0; // the host's databases, a bit each
    std::list<qel_ip_t> ips;
    std::list<qel_disk_t> disks;
    std::list<qel_chn_t> chns;
    std::list<qel_backup_t> backups;
    std::list<qel_db_t> dbs;
    std::mutex lock; // guards all of the above; never taken before the client record's lock is released,
                     // but for the two command paths that say so
};

extern qel_inventory_t g_inventory;

// Holds the inventory's lock until the guard goes or is unlocked.
[[nodiscard]] std::unique_lock<std::mutex> qel_inventory_lock();

// Fills the inventory. Called once, with g_client set and before any thread starts; takes no inventory lock.
// Returns 0, or -1 when the databases could not be listed.
int qel_inventory_init();

qel_inventory_t *qel_get_inventory();

// Refreshes the inventory on the calling thread, which holds neither lock. Slow work is done without the
// lock; each of two steps takes it for a swap of lists, the second also while a disk without identity gets
// its signature. TRACED: with the scan thread's debug lines.
void refresh_inventory(bool traced);

// The same on behalf of a command. Returns qel_get_inventory().
qel_inventory_t *qel_rescan_inventory();

// Replaces the inventory's mirror relationships by those that twinvault reports now. The caller holds neither
// lock.
void qel_refresh_backups();

// True when the inventory has a disk or a partition with that GUID. The caller holds its lock.
bool qel_has_disk(const optional_text &guid);

// The same after qel_rescan_inventory; the caller holds neither lock.
bool qel_is_disk_present(const optional_text &guid);

// The first relationship of that source disk; null for none. The caller holds the inventory's lock.
qel_backup_t *qel_find_backup(const std::string &src_guid);

// How far the mirrors of a disk are.
enum class mirror_level { none, behind, level };

// The worst of the relationships whose END, src_guid or dest_guid, is GUID. The caller holds the inventory's
// lock.
mirror_level qel_mirror_level(std::string qel_backup_t::*end, const optional_text &guid);
