// Disks under twinvault protection. Handlers of the command table, see command_handler; each may take a
// minute for each disk.
#pragma once

struct request;

// Puts the requested disks under protection, all or none of a group, and installs the CDP schedule that comes
// with the request. Status 1 comes with the list of the disks that failed.
int add_backup(request *req);

// Takes disks out of protection, and what depended on it: their CDP schedules and those of their groups.
int del_backup(request *req);

// The same, and has the host look for its devices anew afterwards. No command code is bound to it.
int del_backup_and_rescan(request *req);
