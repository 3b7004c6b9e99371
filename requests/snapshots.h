// The documents of the snapshot commands, and of the CDP agent's commands that name a snapshot's source;
// xml_kav_... are the agent's. See requests/document.h for the rules of all parsers.
#pragma once

#include "base/text.h"

#include <list>
#include <string>

enum snap_source_type { snap_disk = 0, snap_group = 1 };

struct snap_request {
    optional_text source; // the local disk's GUID, or the group's name
    snap_source_type source_type = snap_disk;
    bool is_cluster = false;
};

// The source of "Snap". Returns 0, or -1.
int xml_to_snap_guid(const char *text, snap_request *snap);

// The same in the agent's form, which has no "IsCluster". A null text fails without a log line.
int xml_kav_to_snapshot(const char *text, snap_request *snap);

// The volumes of all "Snap" children of the root; LIST is cleared first. Returns 0, or -1, also for null
// arguments.
int xml_to_snap_vol_guid(const char *text, std::list<std::string> *list);
