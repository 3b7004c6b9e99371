// Disks under twinvault protection. Handlers of the command table, see command_handler; each can take a
// minute per disk.
#pragma once

struct request;

// Protects the requested disks, for a group all or none, and installs the CDP schedule of the request. Status
// 1 comes with a list of the disks that failed.
int add_backup(request *req);

// Removes the protection of disks, and with it their CDP schedules and those of their groups.
int del_backup(request *req);

// The same, then searches for devices. Nothing here calls it and no command code is bound to it; it is part
// of the room's interface for a caller that needs the host to drop devices of released mirrors at once.
int del_backup_and_rescan(request *req);
