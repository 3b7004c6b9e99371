// Synchronising mirrors with their disks. Handlers of the command table, see command_handler.
#pragma once

struct request;

// Starts a full resynchronisation of each requested disk. Status 1 comes with a list of the disks that
// failed.
int init_mirror(request *req);

// Stops it. The status is 0 even if disks failed; the answer lists them.
int cancel_init_mirror(request *req);
