// Snapshots on demand. Handlers of the command table, see command_handler; the one that begins with kav_ is
// the CDP agent's. No answer but the status.
#pragma once

struct request;

// Takes a snapshot of one protected disk, or of a group, when all of it is level with its mirrors. A group
// that does not exist is a success.
int create_snapshot(request *req);
int kav_create_cdp(request *req);

// Waits until the restored volumes have come to this host, for up to forty seconds and the looking.
int snap_restore(request *req);
