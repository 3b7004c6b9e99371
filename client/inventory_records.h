// The records of the host inventory: what this host is and has.
#pragma once

#include "base/secret.h"
#include "base/text.h"

#include <netinet/in.h>

#include <cstdint>
#include <list>
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
    optional_text guid;   // see disk_identity.h; only read if state is not 0
    uint32_t is_lun = 0;  // 1: a volume of the storage system
    uint64_t size = 0;    // bytes
    uint64_t used = 0;    // unknown for whole disks
    optional_text fs;     // likewise
    optional_text vendor; // vendor, one blank, model
    int32_t state = 0;    // the library's state word; 0: do not report or touch the disk
    uint32_t type = 0;    // partition-table type, see get_part_type
    std::list<qel_part_t> parts;
};

enum qel_chn_type : uint32_t { chn_iscsi = 0, chn_fc = 1 };

struct qel_chn_t {
    uint32_t type = chn_iscsi;
    optional_text initiator; // IQN, or the FC port's WWN as in sysfs, e.g. 0x21000024ff3c5a1e
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
    int32_t speed = -1; // unknown
    std::string src_guid;
    std::string dest_guid;
    std::string src_name;    // device name without "/dev/"
    uint64_t start_time = 0; // the console's start time of the mirror's CDP schedule; 0: no schedule
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
    secret_text db_passwd; // only on the way to the library; the inventory has none
    optional_text oracle_home;
    optional_text host;
    optional_text port;
};
