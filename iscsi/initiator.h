// The open-iscsi initiator: its tool, iscsiadm(8), and its service.
//
// Every operation runs the tool through the shell and waits for it, which can take minutes; only the exit
// status counts. Nothing here locks: callers must not run these at the same time. Each returns 0, or -1 after
// a log line, unless it says otherwise. A name that is not a plain word for the shell, begins with '-' or
// holds a '/' fails as if the tool had failed.
#pragma once

#include "iscsi/node.h"

// 1 if the tool is in one of its usual folders, else 0.
int is_iscsiadm_installed();

// 1 if the initiator's service runs, else 0.
int is_iscsid_running();

// Discovers the targets at the target's portal, bound to the initiator's interface if it has one; then
// removes the node records of the target's other portals, so that later logins use only this one.
int qel_iscsi_discover_target(const qel_iscsi_node *target, const qel_iscsi_node *initiator);

// Logs in to, or out of, everything that the target's name, its portal and the initiator's interface select.
// Those that are unknown are left out.
int qel_iscsi_login_channel(const qel_iscsi_node *target, const qel_iscsi_node *initiator);
int qel_iscsi_logout_channel(const qel_iscsi_node *target, const qel_iscsi_node *initiator);

// Discovery, then login.
int qel_iscsi_discover_login(const qel_iscsi_node *target, const qel_iscsi_node *initiator);
