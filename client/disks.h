// Disks and mirror relationships, as the platform libraries know them.
#pragma once

#include "client/client.h"
#include "client/inventory.h"

#include <list>
#include <mutex>

// Appends the disks that libkavdisk lists; FLAG is handed to it (1: with partitions). Slow: no lock should be
// held. Returns 0, or -1 for a null list.
int qel_get_disks(std::list<qel_disk_t> *list, int flag);

// Finds the partition-table type of every disk that is reported and identified, but for mirror destinations,
// which belong to the storage system. BACKUPS is read under MUTEX, when there is one. Returns 0.
int qel_get_part_type_lock(std::list<qel_disk_t> &disks, const std::list<qel_backup_t> &backups,
                           std::mutex *mutex);

// Appends the mirror relationships that are not stopped, each with the times of its CDP schedule, for which
// it takes CLIENT_LOCK. Returns 0, or -1 when memory is short.
int qel_get_backups_lock(const qel_t *client, std::list<qel_backup_t> &list, std::mutex &client_lock);
