// The documents that come with the manager's commands, made into records.
//
// Each function takes the NUL-terminated body of one request and logs what is wrong with it; a null body is
// one that cannot be read. None changes the daemon's state or takes a lock. Where a result is filled in
// through a pointer, what a failure has already filled in stays; the pointers are not null unless it says
// otherwise.
#pragma once

#include "base/text.h"
#include "client/client.h"
#include "client/inventory.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>

// --- Membership ----------------------------------------------------------------------------------------

// A manager from "Server"; an empty record when the first child of the root is something else. Null for a
// null text, silently, and for one that is no such document.
std::unique_ptr<qel_manager> xml_to_manager(const char *text);

// The alias that "Client" gives; absent when there is none.
optional_text xml_to_alias(const char *text);

// The GUIDs of "Server" and "Client". A text whose element or GUID is missing stays as it was. All three
// arguments may be null, which is logged.
void xml_to_pair(std::string *server_guid, std::string *client_guid, const char *text);

// --- Consistency groups --------------------------------------------------------------------------------

// The group of "BGCreate" with its members; null on failure. A child of "BGCreate" that is no member, or a
// member without GUID, is met again without end: the call does not return.
std::unique_ptr<qel_group> xml_to_backup_grp(const char *text, bool *is_cluster);

// The group and the disk that leaves it, from "RemBGDisk". When the first child of the root is something
// else, both stay as they were. Returns 0, or -1 for a text that is no such document.
int xml_to_bg_info(std::string *disk_guid, std::string *group, const char *text);

// A group that has only the name that "BGDelete" gives; null on failure.
std::unique_ptr<qel_group> xml_to_del_grp(const char *text, bool *is_cluster);

// --- Snapshots -----------------------------------------------------------------------------------------

enum snap_source_type { snap_disk = 0, snap_group = 1 };

struct snap_request {
    optional_text source; // the local disk's GUID, or the group's name
    snap_source_type source_type = snap_disk;
    bool is_cluster = false;
};

// The source of "Snap". Returns 0, or -1.
int xml_to_snap_guid(const char *text, snap_request *snap);

// The volumes of all "Snap" children of the root; LIST is emptied first. Returns 0, or -1, also for null
// arguments.
int xml_to_snap_vol_guid(const char *text, std::list<std::string> *list);

// --- Backups -------------------------------------------------------------------------------------------

// Appends the source disk of every "Backup" of "BackupList". Returns 0, or -1. A child that is no "Backup",
// or one without a source, is met again without end: the call does not return.
int xml_to_bp_srcguid(const char *text, std::list<std::string> *list);

struct cdp_schedule {
    uint64_t start_time = 0; // seconds since the epoch
    uint32_t interval = 0;   // seconds
};

// Appends the disks of "BackupList" with their mirrors, then sets next run and interval of all of LIST from
// "Schedule". GROUP, which must not be null, becomes the group's name when the schedule is for one, else it
// stays as it was. Returns 0, or -1.
int xml_to_cdpsch_list(const char *text, std::list<qel_cdpsch> *list, cdp_schedule *schedule,
                       std::string *group);

// The two sides of "Backup", which must be the first child of the root. A missing attribute leaves its text
// as it was. Returns 0, or -1.
int xml_to_volname(std::string *source, std::string *destination, const char *text);

// The mirror of a protected disk, absent when it has none. The caller holds the inventory's lock.
optional_text get_mirror_guid_of_local(const char *local_guid, const qel_inventory_t *inventory);

// --- Databases -----------------------------------------------------------------------------------------

// The database of "DBSet", without host and port; null on failure.
std::unique_ptr<qel_db_t> xml_to_KavApp(const char *text, bool *is_cluster);

// The instance that "DBCfgDel" names; absent when there is none. IS_CLUSTER is only set when the document
// says something about it.
optional_text xml_to_instance_name(const char *text, bool *is_cluster);
