// The membership commands: a manager finds the host and asks about it; local tools list it.
//
// Each takes the exchange, may set the reply's body, and returns the reply's status.
#pragma once

#include "protocol/request.h"

int scan_client(request *req);    // the report of a host that no manager has adopted; 52 for one that has
int rescan_devices(request *req); // has the kernel look for new devices
int nop_command(request *req);
int local_list(request *req); // the client record for local tools
