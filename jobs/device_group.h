// Consistency groups in the form that the CDP agent library takes.
#pragma once

#include "base/deleter.h"
#include "client/client.h"

#include <kavagt.h>

#include <memory>

// Frees the group and its devices.
void free_device_group(Kavdevgrp *group);
using device_group = std::unique_ptr<Kavdevgrp, deleter<free_device_group>>;

// The mirrors of a group's disks; mirrors that this host does not see as disks are left out. Null after a log
// line if a disk has no mirror. Takes the inventory's lock; the caller holds the lock of the record that
// GROUP belongs to.
device_group _bkup_grp_to_cdp_kavgrp(const qel_group *group);
