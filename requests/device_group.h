// Consistency groups as the CDP agent library takes them.
#pragma once

#include "client/client.h"

#include <kavagt.h>

#include <memory>

struct device_group_free {
    void operator()(Kavdevgrp *group) const noexcept;
};
using device_group = std::unique_ptr<Kavdevgrp, device_group_free>;

// The mirrors of a group's disks, as far as this host sees them as disks of its own. Null after a log line
// when a disk has no mirror. Takes the inventory's lock; the caller holds that of the record that GROUP
// belongs to.
device_group _bkup_grp_to_cdp_kavgrp(const qel_group *group);
