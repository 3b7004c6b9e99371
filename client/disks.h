// Disks and mirror relationships, as the platform libraries report them.
#pragma once

#include "client/client.h"
#include "client/inventory_records.h"

#include <list>
#include <mutex>

// Appends the disks that libkavdisk lists; FLAG is passed to it (1: with partitions). Slow: call it without
// locks where possible. Returns 0, or -1 for a null list.
int qel_get_disks(std::list<qel_disk_t> *list, int flag);

// Sets the partition-table type of every reported disk that has an identity, except mirror destinations,
// which belong to the storage system. BACKUPS is read under MUTEX if that is not null. Returns 0.
int qel_get_part_type_lock(std::list<qel_disk_t> &disks, const std::list<qel_backup_t> &backups,
                           std::mutex *mutex);

// Appends the mirror relationships that are not stopped, each with the times of its CDP schedule; takes
// CLIENT_LOCK to read those. Returns 0, or -1 when out of memory.
int qel_get_backups_lock(const qel_t *client, std::list<qel_backup_t> &list, std::mutex &client_lock);
