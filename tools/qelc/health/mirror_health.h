// A mirror of this host, with what only the host itself knows: where it is, and why it is not in use.
#pragma once

#include "platform/linux/mirror/record.h"
#include "tools/qelc/views/mirrors.h"

#include <string>
#include <vector>

struct mirror_health {
    mirror_view view;
    std::string place;   // the name of the mirror; its GUID if this host does not know it
    std::string missing; // why one of the two is not in use; "" if nobody can tell
};

// RECORDS are those of the mirror library of this host; none for another host.
mirror_health health_of(const mirror_view &view, const std::vector<mirror_record> &records);

// False if the records are not about exactly these mirrors: another library runs them, or they have changed.
bool are_same_mirrors(const std::vector<mirror_health> &mirrors, const std::vector<mirror_record> &records);

// The same mirror as RECORD and its progress tell of it now. The daemon is not asked, so that this may be
// done each second.
mirror_health seen_again(const mirror_health &former, const mirror_record &record);

// The record of that mirror. It is there if are_same_mirrors says so.
const mirror_record &record_of(const mirror_health &one, const std::vector<mirror_record> &records);
