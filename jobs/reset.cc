#include "jobs/reset.h"

#include "base/log.h"
#include "base/shortage.h"
#include "client/client.h"
#include "client/inventory.h"
#include "client/relationship_chain.h"
#include "config/config.h"
#include "iscsi/channel.h"
#include "jobs/heartbeat_job.h"
#include "jobs/timer.h"

#include <kavagt.h>

#include <mutex>

namespace {
std::mutex reset_in_progress_lock;
bool reset_in_progress = false; // guarded by the mutex above

// False if a reset is already running.
bool begin_reset()
{
    const std::lock_guard held(reset_in_progress_lock);
    if (reset_in_progress)
        return false;
    reset_in_progress = true;
    return true;
}

void end_reset()
{
    const std::lock_guard held(reset_in_progress_lock);
    reset_in_progress = false;
}

void stop_heartbeat()
{
    const std::lock_guard held(g_heartbeat_running_lock);
    log_info("Stop heartbeat.");
    g_heartbeat_running = 0;
}

void delete_databases()
{
    const auto held = qel_inventory_lock();
    for (; !g_inventory.dbs.empty(); g_inventory.dbs.pop_front())
        Kav_delete_app(c_text(g_inventory.dbs.front().instance_name));
}

void remove_protection()
{
    const relationship_chain mirrors;
    for (const tw_relationship *mirror = mirrors.first; mirror; mirror = mirror->next) {
        log_info("Remove twinvault protection.");
        tw_disk_unprotect(mirror->src_guid);
        Kav_delete_dev(0, mirror->dest_guid);
    }
}

void remove_schedules_and_groups()
{
    log_info("Remove all CDP schedules.");
    {
        const std::lock_guard held(g_client->lock);
        qel_remove_schedules(g_client, nullptr);
    }
    log_info("Remove all backup groups.");
    const std::lock_guard held(g_client->lock);
    qel_remove_groups(g_client);
}

// The lock is held during the log-out, so that no new channel to this manager is set up meanwhile.
void forget_manager()
{
    const std::lock_guard held(g_client->lock);
    if (g_client->manager) {
        log_info("Shutdown iSCSI channels.");
        end_at_shortage([] { qel_cancel_iscsi_channel_all(c_text(g_client->manager->target_iqn)); });
    }
    log_debug("Removing manager config informations.");
    qel_mngr_remove(g_client);
    log_debug("Manager informations are removed correctly.");
    log_debug("Updating config file after manager removal.");
    qel_save(g_client);
    log_debug("config file is updated correctly.");
}

void forget_alias()
{
    optional_text alias; // freed after the lock is released
    const auto held = qel_inventory_lock();
    alias.swap(g_inventory.alias);
}
} // namespace

void _client_reset()
{
    if (!begin_reset())
        return;
    log_info("Releasing all background task.");
    job_release_all();
    stop_heartbeat();
    // No step stops the reset, nor does memory that runs out in one.
    for (const auto step :
         {delete_databases, remove_protection, remove_schedules_and_groups, forget_manager, forget_alias})
        end_at_shortage(step);
    end_reset();
}
