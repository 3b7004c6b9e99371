// The CDP schedules of disks and groups. Handlers of the command table, see command_handler.
#pragma once

struct request;

// Sets, changes or removes the schedule of one group or of one protected disk. Never has an answer of its
// own.
int set_cdp_schedule(request *req);
