// The initiator's interface ("iface") records: one file per network interface that carries an initiator
// address, so that a session is bound to that interface (see iscsiadm(8), "-I").
//
// Nothing here locks: callers serialise. A null node is logged and fails.
#pragma once

#include "base/text.h"
#include "iscsi/node.h"

constexpr char iface_dir[] = "/var/lib/iscsi/ifaces";
constexpr char iface_prefix[] = "qel_iface_"; // begins the names of the records that the daemon owns

// The network interface that carries the initiator's address: "" when none does; absent after a log line
// when the node has no address or the interfaces cannot be listed.
optional_text get_nic_name(const qel_iscsi_node *initiator);

// 0 when get_nic_name gives a name, an empty one included; else -1.
int is_host_ip(const qel_iscsi_node *initiator);

// iface_prefix and the interface's name; absent when there is none.
optional_text get_iface_name(const qel_iscsi_node *initiator);

// 0 when the initiator's record exists; else -1.
int is_iface_exist(const qel_iscsi_node *initiator);

// Writes the initiator's record, whole or not at all: a temporary file is renamed. Returns 0, or -1.
int _creat_iface(const qel_iscsi_node *initiator);

// The record to bind a command to, which is written when it does not exist; absent for an initiator without
// usable address. Returns 0, or -1 for a null argument or when the record has no name.
int check_before_operate(optional_text *iface_name, const qel_iscsi_node *initiator);

// Unlinks every record that the daemon owns. Returns 0, or -1 when the folder cannot be opened.
int remove_iscsi_iface();
