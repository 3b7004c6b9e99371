#include "jobs/heartbeat.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "base/thread.h"
#include "client/inventory.h"
#include "client/report.h"
#include "config/config.h"
#include "iscsi/channel.h"
#include "jobs/heartbeat_job.h"
#include "jobs/manager_connection.h"
#include "jobs/reset.h"
#include "jobs/timer.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/membership.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <new>

namespace {
constexpr uint32_t heartbeat_interval = 5; // seconds
constexpr uint32_t largest_backoff = 128;

// Set while a worker collects its report; a second worker ends at once. If a worker finds no manager or no
// job, the flag stays set, and no heartbeat is sent until the next start of the process.
std::atomic<bool> heartbeat_in_progress{false};

// The manager that one heartbeat is sent to.
struct recipient {
    std::string guid;
    uint16_t port = 0;
    std::list<qel_addr> addresses;
};

int find_recipient(recipient &manager)
{
    const std::lock_guard held(g_client->lock);
    if (!qel_is_protected(g_client))
        return -1;
    manager.guid = g_client->manager->guid.value_or("");
    if (manager.guid.empty()) {
        log_error("Failed to get manager's guid");
        return -1;
    }
    if (g_client->server_port == 0) {
        log_error("Failed to get manager's port");
        return -1;
    }
    manager.port = static_cast<uint16_t>(g_client->server_port);
    for (const qel_addr &address : g_client->manager->ip_list) {
        if (qel_addr *entry = list_append(manager.addresses))
            *entry = address;
        else
            log_error("Failed to allocate memory");
    }
    return 0;
}

// After a failed connection: the next heartbeats come more slowly.
void slow_down(job_status &job)
{
    job.backoff = std::min(job.backoff * 2, largest_backoff);
}

// After a successful connection: back to the normal interval at once.
void resume_rhythm(job_status &job)
{
    if (job.backoff > 1) {
        job.backoff = 1;
        job.next_time = clock_monotonic() + heartbeat_interval;
        wake_timer();
    }
    const int64_t now = clock_monotonic();
    if (job.next_time <= now) {
        log_debug("tid:%lu:Update heartbeat stat next_time.", pthread_self());
        job.backoff = 1;
        job.next_time = now + heartbeat_interval;
    }
}

optional_text full_report(const qel_inventory_t &inventory)
{
    try {
        return client_to_xml(inventory, g_client, 1);
    } catch (const std::bad_alloc &) {
        return std::nullopt;
    }
}

// The client report; absent after a log line.
optional_text collect_report()
{
    const pthread_t tid = pthread_self();
    std::unique_lock held(g_inventory.lock, std::try_to_lock);
    while (!held) {
        log_debug("tid:%lu. Wait the lock of g_client.lock release.", tid);
        held.try_lock();
    }
    log_debug("tid:%lu.The pthread of heartbeat g_client.lock lock.", tid);
    log_debug("tid:%lu heartbeat get client's attribute.", tid);
    const qel_inventory_t *inventory = qel_get_inventory();
    if (!inventory) {
        log_error("Failed to get client");
        return std::nullopt;
    }
    optional_text report = full_report(*inventory);
    if (!report) {
        log_error("Failed to get xml(client info)");
        return std::nullopt;
    }
    held.unlock();
    log_debug("tid:%lu.The pthread of heartbeat g_client.lock unlock.", tid);
    return report;
}

int exchange(int fd, request &req, std::string report)
{
    req.send_head.version = protocol_version;
    req.send_head.ret = status_ok;
    req.send_head.origin = heartbeat_origin;
    req.send_head.cmd = heartbeat_command;
    set_send_xml(req, std::move(report));
    if (send_to_remote(fd, &req) != 0) {
        log_error("Failed to send msg to manager");
        return -1;
    }
    if (recv_from_remote(fd, &req) != 0) {
        log_error("Failed to receive msg from manager");
        return -1;
    }
    log_debug("req->recv_head.ret_status:%d", req.recv_head.ret);
    return 0;
}

// Stores the manager's new addresses if it has moved. Check and change are under one lock, so that a reset
// between them is not undone.
int follow_manager(const qel_manager &newer)
{
    const std::lock_guard held(g_client->lock);
    if (is_manager_changed(&newer) != 1)
        return 0;
    if (qel_mngr_appoint(&newer, g_client) != 0) {
        log_error("Failed to appoint manager");
        return -1;
    }
    qel_save(g_client);
    return 0;
}

void check_channel()
{
    const int result = qel_is_iscsi_channel_login();
    if (result == -1)
        log_debug("It need not establish channel.");
    else if (result == 0)
        log_info("Channel auto login success.");
}

void take_record(const request &req)
{
    log_debug("Translate xml to struct qel_manager");
    const std::unique_ptr<qel_manager> newer = xml_to_manager(req.recv_xml.get());
    if (!newer) {
        log_error("Failed to fetch manager from xml");
        return;
    }
    log_debug("tid:%lu:Check if manager changed", pthread_self());
    if (follow_manager(*newer) == 0)
        check_channel();
}

void act_on_answer(const request &req)
{
    if (req.recv_head.ret == status_not_adopted) {
        log_error("Localhost is unprotected anymore");
        _client_reset();
    } else if (req.recv_head.ret != status_ok) {
        log_error("Tessaron server return error");
    } else {
        take_record(req);
    }
}

void send_heartbeat(const recipient &manager, job_status &job, manager_connection &connection)
{
    const std::unique_ptr<request> req = new_request();
    if (!req) {
        log_error("Failed to initialize request");
        return;
    }
    if (connect_to_manager(connection, manager.addresses, manager.port, manager.guid) != 0)
        return;
    if (connection.chosen < 0) {
        slow_down(job);
        log_error("Failed to connect to manager '%s'", manager.guid.c_str());
        return;
    }
    resume_rhythm(job);
    optional_text report = collect_report();
    if (!report)
        return;
    heartbeat_in_progress = false; // a slow manager does not hold up the next heartbeat
    if (exchange(connection.chosen, *req, *std::move(report)) == 0)
        act_on_answer(*req);
}

// False if there is no manager or no job.
bool send_to_appointed_manager()
{
    recipient manager;
    if (find_recipient(manager) != 0)
        return false;
    const std::shared_ptr<job_status> job = job_find_heartbeat();
    if (!job) {
        log_error("Error: there must be one and only one heartbeat status");
        return false;
    }
    manager_connection connection;
    send_heartbeat(manager, *job, connection);
    heartbeat_in_progress = false;
    return true;
}

// A heartbeat that finds no manager or no job leaves the flag set.
void *_process_heartbeat(void *)
{
    const pthread_t tid = pthread_self();
    log_debug("tid:%lu Start to process heartbeat", tid);
    if (heartbeat_in_progress.exchange(true)) {
        log_debug("tid:%lu. The pthread of heartbeat had exist.The pthread release ahead of end.", tid);
        return nullptr;
    }
    bool is_complete = false;
    if (!end_at_shortage([&] { is_complete = send_to_appointed_manager(); }))
        heartbeat_in_progress = false; // the next one may find memory again
    if (is_complete)
        log_debug("tid:%lu:Complete heartbeat", tid);
    return nullptr;
}

// Only the first address decides whether a manager has moved.
in_addr_t first_address(const qel_manager &manager)
{
    return manager.ip_list.empty() ? 0 : manager.ip_list.front().addr;
}
} // namespace

int _register_for_heartbeat()
{
    static std::mutex registering; // two adoptions at once must not both add a job
    const std::lock_guard held(registering);
    if (heartbeat_stays())
        return 0;
    log_debug("Registering for heartbeat");
    std::unique_ptr<job_status> job = _alloc_job_status();
    if (!job) {
        log_error("Failed to create empty job.");
        return -1;
    }
    job->type = JOB_HEARTBEAT;
    job->handler = process_heartbeat;
    job->next_time = 0; // due at once
    job->interval = heartbeat_interval;
    job->backoff = 1;
    if (job_add(std::move(job)) != 0) {
        log_error("Failed to register heartbeat job.");
        return -1;
    }
    log_info("Heartbeat registered.");
    return 0;
}

int32_t process_heartbeat(const job_status *)
{
    {
        const std::lock_guard held(g_heartbeat_running_lock);
        log_debug("g_heartbeat_running = %d", g_heartbeat_running);
        if (!g_heartbeat_running)
            return -1;
    }
    pthread_t worker;
    if (start_thread(&worker, _process_heartbeat, nullptr) != 0) {
        log_error("Failed to create thread for heartbeat");
        return -1;
    }
    pthread_detach(worker); // here, so that also a worker that ends early leaves nothing behind
    return 0;
}

int is_manager_changed(const qel_manager *newer)
{
    if (!newer || !newer->guid)
        return 0;
    const qel_manager *appointed = g_client->manager.get();
    if (!appointed || newer->guid != appointed->guid) {
        log_warning("'%s' is not the right manager, '%s' is", newer->guid->c_str(),
                    appointed ? printable(appointed->guid) : "(null)");
        return 0;
    }
    return first_address(*newer) != first_address(*appointed);
}
