// The addresses of an iSCSI node as open-iscsi takes them.
#pragma once

#include "client/iscsi_node.h"

// The node's address as text; absent for 0.0.0.0 and 255.255.255.255, which mean that there is no address.
optional_text node_ip_str(const qel_iscsi_node &node);

// "ADDRESS:PORT", or just the address for a node without port; absent after a log line if the node is null or
// has no address.
optional_text get_portal(const qel_iscsi_node *target);
