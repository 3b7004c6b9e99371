// The documents of the commands that protect disks, release them and initialise their mirrors. See
// requests/document.h for the rules of all parsers.
#pragma once

#include "base/text.h"
#include "client/client.h"

#include <cstdint>
#include <list>
#include <string>

// Appends the source disk of every "Backup" of "BackupList". Returns 0, or -1. If a child is not a "Backup",
// or has no source, the call loops for ever and does not return.
int xml_to_bp_srcguid(const char *text, std::list<std::string> *list);

struct cdp_schedule {
    uint64_t start_time = 0; // seconds since the epoch
    uint32_t interval = 0;   // seconds
};

// Appends the disks of "BackupList" with their mirrors, then sets next run and interval of every disk in LIST
// from "Schedule". If the schedule is for a group, GROUP becomes its name, else it stays unchanged; a null
// GROUP fails. Returns 0, or -1.
int xml_to_cdpsch_list(const char *text, std::list<qel_cdpsch> *list, cdp_schedule *schedule,
                       std::string *group);

// The source and the mirror of "Backup", which must be the first child of the root. A missing attribute
// leaves its text unchanged. Returns 0, or -1. Nothing here calls it; it is part of the room's interface for
// a command about one backup.
int xml_to_volname(std::string *source, std::string *destination, const char *text);

// Appends the "SrcGUID" of every element of "BackupList", which must be the first child of the root. An
// element without one gives an absent text, so that the caller reports it in its turn. Returns 0, or -1.
int xml_to_released_disks(const char *text, std::list<optional_text> *list);
