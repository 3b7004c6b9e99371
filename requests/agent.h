// The documents that come with the CDP agent's commands, made into records; see requests/manager.h for what
// holds for all such functions.
#pragma once

#include "requests/manager.h"

// The group of "Group" with its members; null on failure. Stands still like xml_to_backup_grp.
std::unique_ptr<qel_group> xml_kav_to_backup_grp(const char *text, bool *is_cluster);

// The source of "Snap". Returns 0, or -1, for a null text silently.
int xml_kav_to_snapshot(const char *text, snap_request *snap);
