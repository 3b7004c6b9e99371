// The channel commands: the manager has this host set up the iSCSI channel to its storage, and move it.
//
// Each takes the exchange, may set the reply's body, and returns the reply's status. Each runs tools, and can
// take minutes.
#pragma once

#include "protocol/request.h"

int establish_channels(request *req);
int refresh_server(request *req); // the manager's changed record
