// The open-iscsi initiator: its tool, iscsiadm(8), and its service.
//
// Every operation runs the tool through the shell and waits for it, which can take minutes; its exit status
// is all that counts. Nothing here locks: callers serialise. Each returns 0, or -1 after a log line, unless
// it says otherwise. A name that the shell would not take as one plain word fails like a tool that failed.
#pragma once

#include "iscsi/node.h"

// 1 when the tool stands at one of its usual places, else 0.
int is_iscsiadm_installed();

// 1 when the initiator's service runs, else 0.
int is_iscsid_running();

// Asks the target's portal what it offers, bound to the initiator's interface if it has one; then removes the
// node records of the target's other portals, so that later logins touch only this one.
int qel_iscsi_discover_target(const qel_iscsi_node *target, const qel_iscsi_node *initiator);

// Logs in to, or out of, whatever the target's name, its portal and the initiator's interface select, as far
// as they are known.
int qel_iscsi_login_channel(const qel_iscsi_node *target, const qel_iscsi_node *initiator);
int qel_iscsi_logout_channel(const qel_iscsi_node *target, const qel_iscsi_node *initiator);

// Discovery, then login.
int qel_iscsi_discover_login(const qel_iscsi_node *target, const qel_iscsi_node *initiator);
