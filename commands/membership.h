// The membership commands: a manager finds the host, adopts it, asks about it, names it and releases it;
// local tools list it and withdraw it.
//
// Handlers of the command table, see command_handler.
#pragma once

#include "protocol/request.h"

int scan_client(request *req); // the report of a host that is not adopted; 52 if it is
int add_client(request *req);  // adopts the host: the report, then heartbeats; 52 if it is adopted already
int del_client(request *req);  // ends the adoption; 10000 while disks are protected
int get_client_info(request *req); // a fresh report of an adopted host
int rename_client(request *req);   // stores the name that the manager gives
int rescan_devices(request *req);  // makes the kernel search for new devices
int nop_command(request *req);
int local_list(request *req);     // the client record for local tools
int local_withdraw(request *req); // ends an adoption whose manager cannot be reached
