// The client record: everything that the daemon keeps across restarts, and the functions that read and change
// it.
//
// Texts that can be absent are optional: absent and empty are different things. Lists keep insertion order,
// which is also their order in the configuration file. Unless a function says otherwise, its caller holds the
// record's lock. Functions that change the record take its content_lock themselves.
#pragma once

#include "base/text.h"
#include "client/cdp_times.h"

#include <netinet/in.h>

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>

struct qel_addr {
    in_addr_t addr = 0; // IPv4, network byte order
};

struct qel_manager {
    optional_text guid;
    optional_text target_iqn; // the iSCSI target of the manager's storage
    std::list<qel_addr> ip_list;
};

struct qel_group_disk {
    optional_text disk_guid;
};

// A consistency group. It has a running CDP job exactly when cdp_start_time and cdp_timeout are non-zero.
struct qel_group {
    optional_text name;
    uint64_t cdp_con_start_time = 0; // seconds since the epoch: the start that the console set
    uint64_t cdp_start_time = 0;     // seconds since the epoch: the next run
    uint32_t cdp_timeout = 0;        // interval in seconds; 0: no schedule
    std::list<qel_group_disk> member_list;
};

// The periodic snapshot of one protected disk.
struct qel_cdpsch {
    optional_text local_lun;         // GUID of the local disk
    optional_text mirror_lun;        // GUID of the mirror LUN
    uint64_t cdp_con_start_time = 0; // as in qel_group
    uint64_t cdp_start_time = 0;
    uint32_t cdp_timeout = 0;
};

struct qel_t {
    optional_text guid; // absent or empty while no manager has adopted the client
    optional_text alias;
    int client_port = 0; // TCP port of the listener
    int server_port = 0; // the manager's port
    // Local addresses on which connections are refused. Constant while the process serves, so it is read
    // without the lock.
    std::list<qel_addr> filter_list;
    std::unique_ptr<qel_manager> manager; // null: no manager
    std::list<qel_cdpsch> cdpsch_list;
    std::list<qel_group> group_list;
    std::mutex lock; // guards the record except filter_list; lock order: docs/architecture.md
    // Taken for each change, by a thread that already holds LOCK, and for reading, by threads that must not
    // wait for LOCK, which can be held while slow tools run. No other lock is taken under it.
    mutable std::mutex content_lock;
};

// The record of this process. Set once before any thread starts.
extern qel_t *g_client;

// Frees the texts, the manager, the schedules and the groups when the process ends. The record itself, its
// lock and its filter stay, because threads that still run may use them.
void qel_release(qel_t *c);

// Makes a copy of M the manager of C: GUID and addresses; the target stays absent until a channel is set up.
// A null M removes the manager and the alias that it gave. Returns 0, or -1 with the old manager kept.
int qel_mngr_appoint(const qel_manager *m, qel_t *c);
int qel_mngr_remove(qel_t *c);

// Stores a copy of ALIAS. Returns 0, or -1 for a null argument.
int qel_rename_client(qel_t *c, const char *alias);

// Stores a copy of IQN as the target of the manager. Does nothing if there is no manager.
void qel_set_target_iqn(qel_t *c, const char *iqn);

// Appends a CDP schedule, the only element of ADDED, and needs no memory for that. The reference is valid
// while the record keeps the schedule.
qel_cdpsch &qel_add_schedule(qel_t *c, std::list<qel_cdpsch> added);

// Frees one CDP schedule of the record.
void qel_remove_schedule(qel_t *c, const qel_cdpsch *schedule);

// Frees the CDP schedules of the disk LOCAL_LUN, or all of them for null. Returns how many.
size_t qel_remove_schedules(qel_t *c, const char *local_lun);

// Sets the times of a group's or a disk's schedule.
template <class Scheduled>
void qel_set_times(qel_t *c, Scheduled &schedule, const cdp_times &times)
{
    const std::lock_guard changing(c->content_lock);
    schedule.cdp_con_start_time = times.con_start_time;
    schedule.cdp_start_time = times.start_time;
    schedule.cdp_timeout = times.timeout;
}

// The first group of that name; null if there is none or NAME is absent.
qel_group *qel_find_group(qel_t *c, const optional_text &name);

void qel_add_group(qel_t *c, qel_group group);

// Frees one consistency group of the record, or all of them.
void qel_remove_group(qel_t *c, const qel_group *group);
void qel_remove_groups(qel_t *c);

bool qel_has_member(const qel_group &group, const optional_text &disk_guid);

// Moves MEMBERS to the end of the group's list.
void qel_add_members(qel_t *c, qel_group &group, std::list<qel_group_disk> &members);

// Frees the first member of that GUID. False if there is none.
bool qel_remove_member(qel_t *c, qel_group &group, const optional_text &disk_guid);

// The first CDP schedule of the disk; null if it has none.
qel_cdpsch *qel_find_schedule(qel_t *c, const std::string &local_lun);

// 1 if a manager with a GUID has adopted the client, else 0; -1 for a null record. The caller may hold either
// lock.
int qel_is_protected(const qel_t *c);

// 1 if a request comes from our manager and is meant for us, else 0. GUIDs are compared exactly. The caller
// may hold either lock.
int qel_is_pair(const char *manager_guid, const char *client_guid, const qel_t *c);
