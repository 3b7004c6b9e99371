// Consistency groups. Handlers of the command table, see command_handler; kav_... are the CDP agent's. Only
// kav_get_group answers with more than a status.
#pragma once

struct request;

// Creates a group with the members of the request and without a schedule. Schedules of its members stay.
int bg_create(request *req);
int kav_create_group(request *req);

// Deletes a group with its schedule. Its disks stay protected, without a schedule.
int del_backup_grp(request *req);
int kav_delete_group(request *req);

// Adds disks to a group. The disks lose their own schedules, even if the group does not exist.
int add_disk_to_grp(request *req);
int kav_add_member(request *req);

// Removes one disk from a group and gives it a schedule of its own with the group's times.
int rem_disk_from_bg(request *req);

// Removes disks from every group of that name. They get no schedule.
int kav_del_member(request *req);

// Lists the groups and their members.
int kav_get_group(request *req);
