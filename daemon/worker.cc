#include "daemon/worker.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/thread.h"
#include "base/xml.h"
#include "client/client.h"
#include "client/inventory.h"
#include "client/scan_thread.h"
#include "commands/adoption.h"
#include "config/config.h"
#include "daemon/listener.h"
#include "jobs/cdp_schedule.h"
#include "jobs/heartbeat.h"
#include "jobs/heartbeat_job.h"
#include "jobs/timer.h"

#include <malloc.h>
#include <sys/resource.h>

#include <csignal>

namespace {
// Each connection needs a descriptor, and their number is not limited.
void raise_descriptor_limit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// Otherwise malloc makes up to eight heaps per processor, and each keeps the memory that a report once
// needed. The threads are many and short, and wait for locks rather than for memory.
void share_one_heap()
{
    mallopt(M_ARENA_MAX, 1);
}

int start_background_threads()
{
    pthread_t thread;
    if (start_thread(&thread, _scan_client_thread, nullptr) != 0)
        return -1;
    return start_thread(&thread, _timeout_thread, nullptr) == 0 ? 0 : -1;
}

bool timer_runs()
{
    const std::lock_guard held(g_timeout_thread_running_lock);
    log_debug("g_timeout_thread_running = %d", g_timeout_thread_running);
    return g_timeout_thread_running != 0;
}

// A job that is registered before the timer's first wait would not wake it.
void wait_for_timer()
{
    do {
        clock_sleep_ms(1000);
        log_debug("Waiting timeout_thread for 1 second");
    } while (!timer_runs());
}

// A client that was adopted before this process started continues its heartbeats.
int resume_heartbeat()
{
    if (!is_adopted() || _register_for_heartbeat() >= 0)
        return 0;
    log_error("Failed to create heartbeat");
    return -1;
}

// Registers every disk's schedule, and those of groups that are set. Takes the lock: no connection is served
// yet, but the answer to a heartbeat may already reset the client.
int resume_schedules()
{
    const std::lock_guard held(g_client->lock);
    for (const qel_cdpsch &schedule : g_client->cdpsch_list) {
        if (_register_for_cdpsch(&schedule) < 0)
            return -1;
    }
    for (const qel_group &group : g_client->group_list) {
        const bool is_set = group.cdp_start_time != 0 && group.cdp_timeout != 0;
        if (is_set && _register_for_grpsch(&group) < 0)
            return -1;
    }
    return 0;
}

int start(listeners &l)
{
    g_client = qel_load().release();
    if (!g_client)
        return -1;
    if (is_adopted()) {
        const std::lock_guard held(g_heartbeat_running_lock);
        g_heartbeat_running = 1;
    }
    qel_inventory_init();
    if (start_background_threads() != 0)
        return -1;
    wait_for_timer();
    if (open_listeners(l, g_client->client_port) != 0)
        return -1;
    if (resume_heartbeat() != 0)
        return -1;
    return resume_schedules();
}

// The scan thread may still use the record, so only its content is freed, under its lock.
void shut_down(listeners &l)
{
    close_listeners(l);
    job_free_all();
    if (!g_client)
        return;
    {
        const auto held = qel_inventory_lock();
        g_inventory.id = nullptr; // it points into the record
    }
    const std::lock_guard held(g_client->lock);
    qel_release(g_client);
}
} // namespace

int _main()
{
    signal(SIGPIPE, SIG_IGN); // a closed connection is an error of write, not the end of the process
    raise_descriptor_limit();
    share_one_heap();
    xml_init();
    listeners l;
    if (start(l) == 0)
        accept_connections(l);
    shut_down(l);
    return -1;
}
