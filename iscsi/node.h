// One side of an iSCSI session, the target or the initiator, and the channel document that names both.
#pragma once

#include "base/text.h"

#include <netinet/in.h>

#include <cstdint>

constexpr uint16_t default_iscsi_port = 3260;

struct qel_iscsi_node {
    optional_text iqn;  // iSCSI qualified name
    in_addr_t ip = 0;   // IPv4, network byte order; 0: none
    in_port_t port = 0; // network byte order; 0: none, the portal is then the bare address
};

// The node's address as text; absent for "0.0.0.0" and "255.255.255.255", which count as no address.
optional_text node_ip_str(const qel_iscsi_node &node);

// "ADDRESS:PORT", or the bare address for a node without port; absent after a log line when the node is null
// or has no address.
optional_text get_portal(const qel_iscsi_node *target);

// Fills both nodes from the "Channel" of a channel document. Returns 0; -1 after a log line, silently for a
// null text, with neither node's name set.
int xml_to_iscsinode(qel_iscsi_node *target, qel_iscsi_node *initiator, const char *text);
