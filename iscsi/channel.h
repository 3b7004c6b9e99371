// The channel: the iSCSI session between this host and its manager's storage.
//
// Each runs tools and can take minutes. Returns 0, or -1 after a log line, unless it says otherwise.
#pragma once

#include "client/client.h"
#include "iscsi/node.h"

#include <list>

// The first line of a file, at most SIZE - 1 bytes, without its newline, into BUF, which is zeroed first.
int get_value(char *buf, const char *path, int size);

// 1 when the kernel has a session to the target, bound to the initiator's iface record when it has one; else
// 0.
int qel_iscsi_channel_exist(const qel_iscsi_node *target, const qel_iscsi_node *initiator);

// Discovers and logs in from every address of this host that the client record does not filter. 0 when at
// least one succeeded. Takes no lock.
int qel_establish_iscsi_channel_auto(const qel_iscsi_node *target);

// The same towards each of a manager's ADDRESSES in turn until one succeeds, which is logged. 0 when one did,
// -1 without a word when none did. Takes no lock: ADDRESSES must not change meanwhile.
int establish_channel_to_any(const char *iqn, const std::list<qel_addr> &addresses);

// Ends every session to the target and removes its records. A null IQN has nothing to end.
int qel_cancel_iscsi_channel_all(const char *iqn);

// Sets the channel to the appointed manager up again when it has none. 0 when it did; -1 when there is
// nothing to do (no manager, no target, a session that stands) and when no address could be reached. Takes
// the client record's lock, and holds it while the tools run.
int qel_is_iscsi_channel_login();
