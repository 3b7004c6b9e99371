// The channel: the iSCSI session between this host and its manager's storage.
//
// These functions run tools and can take minutes. They return 0, or -1 after a log line, unless they say
// otherwise.
#pragma once

#include "client/client.h"
#include "iscsi/node.h"

#include <list>

// Stores the first line of a file, at most SIZE - 1 bytes, without its newline, in BUF, which is zeroed
// first.
int get_value(char *buf, const char *path, int size);

// 1 if the kernel has a session to the target, bound to the initiator's iface record if it has one; else 0.
int qel_iscsi_channel_exist(const qel_iscsi_node *target, const qel_iscsi_node *initiator);

// Discovers and logs in from every address of this host that the client record does not filter. Returns 0 if
// at least one login succeeds. Takes no lock.
int qel_establish_iscsi_channel_auto(const qel_iscsi_node *target);

// The same to each of a manager's ADDRESSES in turn until one succeeds, which is logged. Returns 0 if one
// does, else -1 without a log line. Takes no lock: ADDRESSES must not change meanwhile.
int establish_channel_to_any(const char *iqn, const std::list<qel_addr> &addresses);

// Ends every session to the target and removes its records. Does nothing for a null IQN.
int qel_cancel_iscsi_channel_all(const char *iqn);

// Sets up the channel to the manager again if it is lost. Returns 0 if it did; -1 if there is nothing to do
// (no manager, no target, or the session exists) or no address can be reached. Takes the client record's
// lock, and holds it while the tools run.
int qel_is_iscsi_channel_login();
