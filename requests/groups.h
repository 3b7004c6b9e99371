// The documents of the commands for consistency groups; xml_kav_... are the CDP agent's. See
// requests/document.h for the rules of all parsers.
#pragma once

#include "client/client.h"

#include <memory>
#include <string>

// The group of "BGCreate" with its members; null on failure. If a child of "BGCreate" is not a member, or a
// member has no GUID, the call loops for ever and does not return.
std::unique_ptr<qel_group> xml_to_backup_grp(const char *text, bool *is_cluster);

// The group of "Group" with its members; otherwise like xml_to_backup_grp.
std::unique_ptr<qel_group> xml_kav_to_backup_grp(const char *text, bool *is_cluster);

// The group and the disk that leaves it, from "RemBGDisk". If the first child of the root is something else,
// both stay unchanged. Returns 0, or -1 if TEXT is not a request document.
int xml_to_bg_info(std::string *disk_guid, std::string *group, const char *text);

// A group with nothing but the name in "BGDelete"; null on failure.
std::unique_ptr<qel_group> xml_to_del_grp(const char *text, bool *is_cluster);
