#include "tests/unit/fake_clock.h"

#include <atomic>
#include <mutex>

namespace {
std::atomic<int64_t> wall_ms{0};
std::atomic<int64_t> monotonic_ms{0};
std::atomic<unsigned> moves{0};

struct waiter {
    pthread_cond_t *cond;
    pthread_mutex_t *mutex;
    int64_t deadline;
};
std::mutex current_lock; // taken after the waiter's own mutex
std::optional<waiter> current;

std::optional<waiter> current_waiter()
{
    const std::lock_guard guard(current_lock);
    return current;
}

void set_current_waiter(std::optional<waiter> value)
{
    const std::lock_guard guard(current_lock);
    current = value;
}

void wake_for_move()
{
    ++moves;
    if (const std::optional<waiter> waiting = current_waiter()) {
        pthread_mutex_lock(waiting->mutex);
        pthread_cond_broadcast(waiting->cond);
        pthread_mutex_unlock(waiting->mutex);
    }
}
} // namespace

void fake_clock_set_wall(int64_t seconds)
{
    wall_ms = seconds * 1000;
}

void fake_clock_set_monotonic(int64_t seconds)
{
    monotonic_ms = seconds * 1000;
    wake_for_move();
}

void fake_clock_advance(int64_t seconds)
{
    wall_ms += seconds * 1000;
    monotonic_ms += seconds * 1000;
    wake_for_move();
}

std::optional<int64_t> fake_clock_deadline()
{
    const std::optional<waiter> seen = current_waiter();
    if (!seen)
        return std::nullopt;
    // Who gets the mutex knows that its holder really waits: a signal from now on cannot be lost.
    pthread_mutex_lock(seen->mutex);
    const std::optional<waiter> waiting = current_waiter();
    pthread_mutex_unlock(seen->mutex);
    return waiting ? std::optional(waiting->deadline) : std::nullopt;
}

int64_t clock_wall()
{
    return wall_ms / 1000;
}

int64_t clock_monotonic()
{
    return monotonic_ms / 1000;
}

void clock_sleep_ms(unsigned milliseconds)
{
    wall_ms += milliseconds;
    monotonic_ms += milliseconds;
}

void clock_cond_init(pthread_cond_t *cond)
{
    pthread_cond_init(cond, nullptr);
}

void clock_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex, int64_t deadline)
{
    set_current_waiter(waiter{cond, mutex, deadline});
    for (bool signalled = false; !signalled;) {
        const unsigned moves_before =
            moves; // read before the time, or a move in between would look like a signal
        if (clock_monotonic() >= deadline)
            break;
        pthread_cond_wait(cond, mutex);
        signalled = moves == moves_before;
    }
    set_current_waiter(std::nullopt);
}
