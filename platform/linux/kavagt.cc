#include "kavagt.h"

#include "platform/linux/weak_log.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

// A plain Linux host has no CDP agent: no device and no database is known, and no snapshot can be taken.

namespace {

const char *shown(const char *text)
{
    return text ? text : "(none)";
}

} // namespace

EXPORTED int kav_call_disk_markcdp(const char *mirror)
{
    log_error("Cannot take a snapshot of mirror %s: this host has no CDP agent", shown(mirror));
    return -1;
}

EXPORTED int kav_call_grp_markcdp(Kavdevgrp *group)
{
    log_error("Cannot take a snapshot of group %s: this host has no CDP agent",
              shown(group ? group->name : nullptr));
    return -1;
}

EXPORTED int Kav_connect_db_flush_cfg(Kavapp *app)
{
    log_error("Cannot connect to database instance %s: this host has no CDP agent",
              shown(app ? app->instance_name : nullptr));
    return -1;
}

EXPORTED int Kav_delete_app(const char *instance_name)
{
    log_error("Cannot delete database instance %s: this host has no CDP agent", shown(instance_name));
    return 0;
}

EXPORTED int Kav_list_app(kav_list * /*apps*/)
{
    return 0;
}

EXPORTED int Kav_list_dev(kav_list * /*devs*/)
{
    return 0;
}

EXPORTED int Kav_delete_dev(int /*flag*/, const char *mirror_guid)
{
    log_error("Cannot forget mirror %s: this host has no CDP agent", shown(mirror_guid));
    return 0;
}
