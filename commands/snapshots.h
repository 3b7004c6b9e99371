// Snapshots on demand. Handlers of the command table, see command_handler; kav_... is the CDP agent's. They
// answer only with a status.
#pragma once

struct request;

// Takes a snapshot of one protected disk, or of a group, if all of it is level with its mirrors. For a group
// that does not exist the status is success.
int create_snapshot(request *req);
int kav_create_cdp(request *req);

// Waits until the restored volumes appear on this host: up to forty seconds, plus the time to look for them.
int snap_restore(request *req);
