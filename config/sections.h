// Reading and writing the sections of the configuration file. Internal to this folder.
//
// Readers return 0, or -1 after a log line. An element that lacks something is skipped with a warning, so
// that the rest of the file is kept. What was read before a failure stays in the caller's list. Writers
// return a node that no document owns yet, or null after a log line.
#pragma once

#include "base/xml.h"
#include "client/client.h"

#include <cstdint>
#include <list>
#include <memory>

// "IPAddrFilter": an invalid address fails the section.
int _cfg_xml_to_filter(const xmlNode *node, std::list<qel_addr> *list);

// "Manager": an invalid address is kept as 0.0.0.0. Null on failure.
std::unique_ptr<qel_manager> _cfg_xml_to_mngr(const xmlNode *node);

// "DiskGroupList", and the members of one "DiskGroup".
int _cfg_xml_to_grp(const xmlNode *node, std::list<qel_group> *list);
int _cfg_xml_to_grp_disk(const xmlNode *node, std::list<qel_group_disk> *list);

// "CDPScheduleList": each schedule continues with its next slot, see catch_up.
int _cfg_xml_to_cdpsch(const xmlNode *node, std::list<qel_cdpsch> *list);

// If the next run of a started schedule has passed at NOW (seconds since the epoch), moves it to the next
// slot, counted in intervals from the stored run. Slots missed while the daemon was down are skipped.
void catch_up(qel_cdpsch &schedule, int64_t now);

xml_node _cfg_filter_to_xml(const std::list<qel_addr> &list);

// Null if there is no manager, too.
xml_node _cfg_mngr_to_xml(const qel_manager *manager);

// One "DiskGroup", and one "CDPSchedule".
xml_node _cfg_backup_grp_to_xml(const qel_group &group);
xml_node _cfg_cdpsch_to_xml(const qel_cdpsch &schedule);
