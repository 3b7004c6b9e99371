// The storage channels of the host: the iSCSI session to the manager's target, and Fibre Channel ports.
#pragma once

#include "client/client.h"
#include "client/inventory.h"

#include <list>
#include <mutex>
#include <string>

// Appends the channels. Takes CLIENT_LOCK while it reads CLIENT. Returns 0, -1 when memory is short, or the
// errno value with which the Fibre Channel folder could not be listed.
int qel_get_chns_lock(const qel_t *client, std::list<qel_chn_t> &list, std::mutex &client_lock);

// Appends the host's initiator names: WWNs, then IQNs. Returns 0, or -1 for a null list.
int qel_get_inis(std::list<std::string> *list);

// 1 if the kernel has an iSCSI session to that target, else 0.
int _is_iscsi_ssn_exist(const char *target);
