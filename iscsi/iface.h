// The initiator's interface ("iface") records: one file per network interface that has an initiator address,
// so that a session can be bound to that interface (see iscsiadm(8), "-I").
//
// Nothing here locks: callers must not run these at the same time. A null node fails after a log line.
#pragma once

#include "base/text.h"
#include "iscsi/node.h"

constexpr char iface_dir[] = "/var/lib/iscsi/ifaces";
constexpr char iface_prefix[] = "qel_iface_"; // prefix of the names of the daemon's own records

// The network interface that has the initiator's address; "" if no interface has it; absent after a log line
// if the node has no address or the interfaces cannot be listed.
optional_text get_nic_name(const qel_iscsi_node *initiator);

// 0 if get_nic_name returns a name, even an empty one; else -1.
int is_host_ip(const qel_iscsi_node *initiator);

// iface_prefix followed by the interface's name; absent if get_nic_name fails or the result is not a file
// name.
optional_text get_iface_name(const qel_iscsi_node *initiator);

// 0 if the initiator's record exists; else -1.
int is_iface_exist(const qel_iscsi_node *initiator);

// Writes the initiator's record to a temporary file and renames it. Returns 0, or -1.
int _creat_iface(const qel_iscsi_node *initiator);

// Sets IFACE_NAME to the record to bind a command to, and writes the record if it does not exist; absent for
// an initiator without usable address. Returns 0, or -1 for a null argument or if the record has no name.
int check_before_operate(optional_text *iface_name, const qel_iscsi_node *initiator);

// Removes all records of the daemon. Returns 0, or -1 if the folder cannot be opened.
int remove_iscsi_iface();
