#include "platform/linux/mirror/worker.h"

#include "platform/linux/host/blocked_signals.h"
#include "platform/linux/host/boundary.h"
#include "platform/linux/mirror/copy.h"

#include <cstring>

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds watch_period = 1s;
constexpr std::chrono::milliseconds search_period = 2s;

// Waits until the next check of source and links is due, or an order comes. False if the worker must end.
bool rest(mirror &one, unsigned *seen)
{
    std::unique_lock held(one.lock);
    const bool are_up = one.record.src_is_up && one.record.dest_is_up;
    if (!one.leaving && one.orders == *seen)
        one.changed.wait(held, are_up ? watch_period : search_period);
    *seen = one.orders;
    return !one.leaving;
}

// True if it should be called again at once.
bool make_turn(mirror &one, mirror_ends &ends)
{
    const bool goes_on = find_disks(one, ends) && copy_what_is_due(one, ends);
    ends.progress.note(one, ends.tracking.why);
    return goes_on;
}

void *work(void *argument)
{
    mirror &one = *static_cast<mirror *>(argument);
    mirror_ends ends;
    unsigned seen = 0;
    do {
        // A pass that ends early has saved how far it came; the next one goes on from there.
        end_at_exception("A pass of a mirror", [&] {
            while (make_turn(one, ends))
                ;
        });
    } while (rest(one, &seen));
    return nullptr;
}

} // namespace

bool start_worker(mirror &one)
{
    const blocked_signals while_it_starts;
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, work, &one);
    const std::lock_guard held(one.lock);
    if (error == 0) {
        pthread_setname_np(thread, "mirror");
        one.worker = thread;
    } else {
        log_error("Cannot start the worker of mirror %s: %s", one.record.dest_guid.c_str(), strerror(error));
    }
    return error == 0;
}

void end_worker(mirror &one)
{
    std::optional<pthread_t> worker;
    {
        const std::lock_guard held(one.lock);
        one.leaving = true;
        one.changed.notify();
        worker = std::exchange(one.worker, std::nullopt);
    }
    if (worker)
        pthread_join(*worker, nullptr);
}
