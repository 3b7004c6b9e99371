// The channel commands: set up the iSCSI channel to the manager's storage, and move it.
//
// Handlers of the command table, see command_handler. Each runs tools and can take minutes.
#pragma once

#include "protocol/request.h"

int establish_channels(request *req);
int refresh_server(request *req); // the manager's changed record
