// Bringing mirrors level with their disks. Handlers of the command table, see command_handler.
#pragma once

struct request;

// Starts a full resynchronisation of each requested disk. Status 1 comes with the list of those that failed.
int init_mirror(request *req);

// Stops it. Status 0 also when disks failed: only the list tells.
int cancel_init_mirror(request *req);
