// The CDP schedules of disks and groups. Handlers of the command table, see command_handler; kav_... are the
// CDP agent's.
#pragma once

struct request;

// Sets, changes or removes the schedule of one group or of one protected disk. Answers only with a status.
int set_cdp_schedule(request *req);
int kav_set_cdp_schedule(request *req);

// Answers with the console's start and the interval of the schedule of one group or disk.
int kav_get_cdp_schedule(request *req);

// Removes the schedule of one group or disk. If the disk has none, the client record stays locked for ever.
int kav_del_cdp_schedule(request *req);
