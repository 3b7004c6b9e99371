// Consistency groups. Handlers of the command table, see command_handler; those that begin with kav_ are the
// CDP agent's. Of all these only kav_get_group answers more than a status.
#pragma once

struct request;

// A new group with the members of the request, and without a schedule. Schedules of its members stay.
int bg_create(request *req);
int kav_create_group(request *req);

// Deletes a group with its schedule. Its disks stay protected, without a schedule.
int del_backup_grp(request *req);
int kav_delete_group(request *req);

// Adds disks to a group. They lose schedules of their own, also when there is no such group.
int add_disk_to_grp(request *req);
int kav_add_member(request *req);

// Takes one disk out of a group and gives it a schedule of its own with the group's times.
int rem_disk_from_bg(request *req);

// Takes disks out of every group of that name. They get no schedule.
int kav_del_member(request *req);

// Lists the groups and their members.
int kav_get_group(request *req);
