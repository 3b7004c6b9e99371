// One side of an iSCSI session: the target or the initiator.
#pragma once

#include "base/text.h"

#include <netinet/in.h>

#include <cstdint>

constexpr uint16_t default_iscsi_port = 3260;

struct qel_iscsi_node {
    optional_text iqn;  // iSCSI qualified name
    in_addr_t ip = 0;   // IPv4, network byte order; 0: no address
    in_port_t port = 0; // network byte order; 0: no port, the portal is then the bare address
};
