// The document that asks for an iSCSI channel. See requests/document.h for the rules of all parsers.
#pragma once

#include "client/iscsi_node.h"

// Fills both nodes from "Channel". Returns 0; -1 on failure, with both nodes unchanged. A null text fails
// without a log line.
int xml_to_iscsinode(qel_iscsi_node *target, qel_iscsi_node *initiator, const char *text);
