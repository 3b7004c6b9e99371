#include "client/scan_thread.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "client/inventory.h"

#include <pthread.h>

#include <mutex>

namespace {
constexpr int64_t scan_interval = 600; // seconds

std::mutex scan_lock; // held by the scan thread except while it waits

// Created at first use, since a heartbeat may signal it before the thread runs.
pthread_cond_t *scan_cond()
{
    static clock_cond woken;
    return &woken.cond;
}
} // namespace

void *_scan_client_thread(void *)
{
    pthread_detach(pthread_self());
    pthread_cond_t *woken = scan_cond();
    const std::lock_guard held(scan_lock);
    for (;;) {
        log_debug("Start once client scan pthread.");
        end_at_shortage([] { refresh_inventory(true); });
        log_debug("Finished once client scan thread.");
        clock_cond_wait(woken, scan_lock.native_handle(), clock_monotonic() + scan_interval);
    }
}

void wake_scan_thread()
{
    pthread_cond_signal(scan_cond());
}
