// The membership commands: a manager finds the host, adopts it, asks about it, names it and lets it go; local
// tools list it and withdraw it.
//
// Each takes the exchange, may set the reply's body, and returns the reply's status.
#pragma once

#include "protocol/request.h"

int scan_client(request *req);     // the report of a host that no manager has adopted; 52 for one that has
int add_client(request *req);      // adoption: the report, heartbeats from now on; 52 for an adopted host
int del_client(request *req);      // the end of it; 10000 while disks are protected
int get_client_info(request *req); // a fresh report of an adopted host
int rename_client(request *req);   // the name that the manager gives
int rescan_devices(request *req);  // has the kernel look for new devices
int nop_command(request *req);
int local_list(request *req);     // the client record for local tools
int local_withdraw(request *req); // the end of an adoption whose manager cannot be reached any more
