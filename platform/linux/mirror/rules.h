// Which two disks may become a mirror relationship.
#pragma once

#include "platform/linux/mirror/record.h"

// The new relationship, not saved yet. Null with the reason in WHY.
std::optional<mirror_record> new_relationship(const std::string &src_guid, const std::string &dest_guid,
                                              std::string *why);
