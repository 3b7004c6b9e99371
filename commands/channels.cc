#include "commands/channels.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shell.h"
#include "base/xml.h"
#include "client/addresses.h"
#include "client/inventory.h"
#include "commands/adoption.h"
#include "config/config.h"
#include "iscsi/channel.h"
#include "iscsi/initiator.h"
#include "jobs/heartbeat.h"
#include "jobs/heartbeat_job.h"
#include "protocol/commands.h"
#include "requests/channels.h"
#include "requests/membership.h"

#include <kavdisk.h>

namespace {
// Both sides of the channel that a command asks for.
struct channel_ends {
    qel_iscsi_node target;
    qel_iscsi_node initiator;
};

int refuse_channel(request &req, in_addr_t initiator, in_addr_t target)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *path = xml_add_element(xml_root(doc), "Path");
    xml_add_attribute(path, "RetValue", "1");
    xml_add_attribute(path, "InitiatorIP", dotted(initiator));
    {
        const auto held = qel_inventory_lock();
        xml_add_attribute(path, "ClientID", g_inventory.id);
    }
    xml_add_attribute(path, "TargetIP", dotted(target));
    set_send_xml(req, xml_to_text(doc));
    return status_channel_failure;
}

// For a request whose addresses are unknown or must not be answered.
int refuse_channel(request &req)
{
    return refuse_channel(req, INADDR_ANY, INADDR_ANY);
}

bool has_recorded_target()
{
    const std::lock_guard reading(g_client->content_lock);
    return g_client->manager && g_client->manager->target_iqn;
}

void record_target(const char *iqn)
{
    log_info("iSCSI is established successfully.");
    {
        const std::lock_guard held(g_client->lock);
        log_info("Updaing server IQN information.");
        qel_set_target_iqn(g_client, iqn);
        qel_save(g_client);
        log_info("Server IQN is updated.");
    }
    log_debug("Establish iscsi channel done");
    log_info("Complete work: ESTABLISH_CHANNELS");
}

// If the manager already has a recorded target, the answer is success.
int report_failed_login(request &req)
{
    log_error("Failed to establish iscsi channel");
    if (!is_iscsid_running()) {
        log_error("Failed to start iscsid service");
        return status_no_initiator_service;
    }
    if (!has_recorded_target())
        return refuse_channel(req);
    log_info("Iscsi session already exist");
    return status_ok;
}

int establish(request &req, const channel_ends &ends)
{
    const char *iqn = c_text(ends.target.iqn);
    if (qel_iscsi_discover_target(&ends.target, &ends.initiator) != 0) {
        log_info("Cannot received servcer targetiqn.");
        return refuse_channel(req, ends.initiator.ip, ends.target.ip);
    }
    if (qel_iscsi_channel_exist(&ends.target, &ends.initiator)) {
        log_info("Iscsi session(tgt: %s) already exist", iqn);
        return status_ok;
    }
    if (qel_iscsi_discover_login(&ends.target, &ends.initiator) != 0)
        return report_failed_login(req);
    record_target(iqn);
    return status_ok;
}

// 0, or -1 when the new manager could not be appointed. OLD_IQN is the former manager's target.
int appoint(const qel_manager &newer, optional_text &old_iqn, bool &changed)
{
    const std::lock_guard held(g_client->lock);
    changed = is_manager_changed(&newer) == 1;
    if (!changed)
        return 0;
    if (g_client->manager && g_client->manager->target_iqn) {
        constexpr size_t longest_iqn = 64;
        old_iqn = g_client->manager->target_iqn->substr(0, longest_iqn);
        log_debug("old_tgt_iqn:%s\n", old_iqn->c_str());
    }
    if (qel_mngr_appoint(&newer, g_client) != 0) {
        log_error("Failed to appoint manager");
        return -1;
    }
    qel_save(g_client);
    return 0;
}

void connect_to_storage(const qel_manager &newer)
{
    if (!newer.target_iqn)
        return;
    const char *iqn = newer.target_iqn->c_str();
    if (establish_channel_to_any(iqn, newer.ip_list) != 0) {
        log_info("Failed to connect to '%s'", iqn);
        return;
    }
    const std::lock_guard held(g_client->lock);
    qel_set_target_iqn(g_client, iqn);
    qel_save(g_client);
}

// Ends the former manager's channel, then sets up the new one.
int move_to(const qel_manager &newer)
{
    optional_text old_iqn;
    bool changed = false;
    if (appoint(newer, old_iqn, changed) != 0)
        return -1;
    if (!changed)
        return 0;
    if (old_iqn && !old_iqn->empty())
        qel_cancel_iscsi_channel_all(old_iqn->c_str());
    connect_to_storage(newer);
    return 0;
}
} // namespace

int establish_channels(request *req)
{
    log_info("Recv cmd: ESTABLISH_CHANNELS");
    if (!req)
        return status_channel_failure;
    if (!is_adopted())
        return refuse_channel(*req);
    if (!is_iscsiadm_installed()) {
        log_error("Iscsi initiator is not installed");
        return status_no_initiator_tool;
    }
    if (!is_iscsid_running()) {
        log_warning("Iscsid service is not start");
        shell_run("service iscsi start");
    }
    channel_ends ends;
    if (xml_to_iscsinode(&ends.target, &ends.initiator, req->recv_xml.get()) != 0) {
        log_error("Failed to get iscsi node info");
        return refuse_channel(*req);
    }
    return establish(*req, ends);
}

int refresh_server(request *req)
{
    constexpr int64_t soon = 5; // seconds
    if (!req)
        return status_failure;
    if (!is_adopted())
        return status_not_adopted;
    const std::unique_ptr<qel_manager> newer = xml_to_manager(req->recv_xml.get());
    if (!newer) {
        log_error("Failed to fetch manager from xml");
        return status_unreadable_request;
    }
    if (move_to(*newer) != 0)
        return status_failure;
    if (kavdisk_rescan_dev(0) == 1)
        log_info("Kavdisk rescan all of device success.");
    else
        log_info("Kavdisk rescan all of devcie failed.");
    job_hurry_heartbeat(clock_monotonic() + soon);
    return status_ok;
}
