#include "commands/membership.h"

#include "base/clock.h"
#include "base/log.h"
#include "client/client.h"
#include "client/inventory.h"
#include "client/local_document.h"
#include "client/relationship_chain.h"
#include "client/report.h"
#include "client/scan_thread.h"
#include "commands/adoption.h"
#include "config/config.h"
#include "jobs/heartbeat.h"
#include "jobs/heartbeat_job.h"
#include "jobs/reset.h"
#include "protocol/commands.h"
#include "requests/membership.h"

#include <kavdisk.h>

namespace {
// Sets the full report as the reply's body. Returns 0, or -1 after a log line.
int answer_with_full_report(request &req)
{
    const auto held = qel_inventory_lock();
    const qel_inventory_t *inventory = qel_get_inventory();
    if (!inventory) {
        log_error("Failed to get client");
        return -1;
    }
    set_send_xml(req, client_to_xml(*inventory, g_client, 1));
    return 0;
}

int appoint(const qel_manager &manager)
{
    const std::lock_guard held(g_client->lock);
    if (qel_mngr_appoint(&manager, g_client) != 0) {
        log_error("Failed to appoint manager");
        return -1;
    }
    log_info("Manager appointed successfully.");
    qel_save(g_client);
    return 0;
}

bool is_from_our_manager(const std::string &server, const std::string &client)
{
    const std::lock_guard reading(g_client->content_lock);
    return qel_is_pair(server.c_str(), client.c_str(), g_client) != 0;
}

int store_alias(const std::string &alias)
{
    const std::lock_guard held(g_client->lock);
    if (qel_rename_client(g_client, alias.c_str()) != 0) {
        log_error("Failed to rename the client");
        return -1;
    }
    qel_save(g_client);
    return 0;
}
} // namespace

int scan_client(request *req)
{
    log_info("Recv cmd: XR_OP_SCAN_CLIENT");
    if (!req)
        return status_failure;
    if (is_adopted())
        return status_already_adopted;
    {
        const auto held = qel_inventory_lock();
        const qel_inventory_t *inventory = qel_get_inventory();
        if (!inventory) {
            log_error("Failed to get client");
            return status_failure;
        }
        set_send_xml(*req, client_to_xml(*inventory, nullptr, 0));
    }
    log_info("Complete work: SCAN_CLIENT");
    return status_ok;
}

int add_client(request *req)
{
    log_info("Recv cmd: ADD_CLIENT");
    if (!req) {
        log_warning("Empty request.");
        return status_failure;
    }
    if (is_adopted()) {
        log_warning("Client is already added to an other server.");
        return status_already_adopted;
    }
    const std::unique_ptr<qel_manager> manager = xml_to_manager(req->recv_xml.get());
    if (!manager) {
        log_error("Failed to fetch manager from xml");
        return status_failure;
    }
    if (appoint(*manager) != 0)
        return status_failure;
    log_debug("Add client done");
    if (answer_with_full_report(*req) != 0)
        return status_failure;
    if (_register_for_heartbeat() < 0) {
        log_error("Failed to create heartbeat");
        return status_failure;
    }
    log_info("Heartbeat is registered successfully.");
    log_info("Complete work: ADD_CLIENT");
    return status_ok;
}

int del_client(request *req)
{
    log_info("Recv cmd: DEL_CLIENT");
    if (!req)
        return status_failure;
    std::string server;
    std::string client;
    xml_to_pair(&server, &client, req->recv_xml.get());
    if (!is_from_our_manager(server, client)) {
        log_error("Server(%s) or client(%s) error", server.c_str(), client.c_str());
        return status_failure;
    }
    if (relationship_chain().first) {
        log_error("Client resetting failed due to existing twinvault protection.");
        return status_still_protected;
    }
    log_info("Resetting client.");
    _client_reset();
    log_info("Client reset.");
    log_info("Complete work: DEL_CLIENT");
    return status_ok;
}

int get_client_info(request *req)
{
    constexpr unsigned scan_head_start = 1000; // milliseconds
    log_info("Recv cmd: GET_CLIENT_INFO");
    if (!req) {
        log_warning("Null request, operation aborted.");
        return status_failure;
    }
    if (!is_adopted()) {
        log_warning("Client ain't protected, operation aborted.");
        return status_failure;
    }
    wake_scan_thread();
    clock_sleep_ms(scan_head_start);
    if (!qel_rescan_inventory()) {
        log_error("Failed to get client");
        return status_failure;
    }
    if (answer_with_full_report(*req) != 0)
        return status_failure;
    log_info("Complete work: GET_CLIENT_INFO");
    return status_ok;
}

int rename_client(request *req)
{
    log_info("Recv cmd: RENAME_CLIENT");
    if (!req || !is_adopted())
        return status_failure;
    optional_text alias = xml_to_alias(req->recv_xml.get());
    if (!alias) {
        log_error("Failed to fetch client alias from xml");
        return status_failure;
    }
    if (store_alias(*alias) != 0)
        return status_failure;
    log_debug("Set alias done");
    log_debug("Update g_client's alias");
    {
        const auto held = qel_inventory_lock();
        alias.swap(g_inventory.alias);
    }
    log_info("Complete work: RENAME_CLIENT");
    return status_ok;
}

int rescan_devices(request *req)
{
    if (!req)
        return status_failure;
    return kavdisk_rescan_dev(0) == 0 ? status_failure : status_ok;
}

int nop_command(request *req)
{
    return req ? status_ok : status_failure;
}

int local_list(request *req)
{
    log_info("Recv cmd: LOCAL_LIST");
    if (!req)
        return status_failure;
    optional_text document = qel_to_xml(g_client);
    if (!document)
        return status_failure;
    set_send_xml(*req, *std::move(document));
    log_info("Complete work: LOCAL_LIST");
    return status_ok;
}

int local_withdraw(request *req)
{
    log_info("Recv cmd: LOCAL_WITHDRAW");
    if (!req)
        return status_failure;
    if (heartbeat_healthy()) {
        log_error("Failed to reset: server still alive(you can delete client on console)");
        return status_failure;
    }
    _client_reset();
    log_info("Complete work: LOCAL_WITHDRAW");
    return status_ok;
}
