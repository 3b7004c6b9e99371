// The storage channels of the host: the iSCSI session to the manager's target, and Fibre Channel ports.
#pragma once

#include "client/client.h"
#include "client/inventory_records.h"

#include <list>
#include <mutex>
#include <string>

// Appends the channels. Takes CLIENT_LOCK while it reads CLIENT. Returns 0, -1 when out of memory, or an
// errno value if the Fibre Channel folder cannot be listed.
int qel_get_chns_lock(const qel_t *client, std::list<qel_chn_t> &list, std::mutex &client_lock);

// Appends the host's initiator names: WWNs, then IQNs. Returns 0, or -1 for a null list. Nothing here calls
// it; it is part of the room's interface for a caller that shows the initiators of this host.
int qel_get_inis(std::list<std::string> *list);

// 1 if the kernel has an iSCSI session to that target, else 0. A null target has none.
int _is_iscsi_ssn_exist(const char *target);
