#include "tests/unit/fake_clock.h"

#include <atomic>
#include <ctime>

namespace {
std::atomic<int64_t> wall{0};
std::atomic<int64_t> monotonic{0};
std::atomic<int64_t> current_deadline{-1};
} // namespace

void fake_clock_set_wall(int64_t seconds)
{
    wall = seconds;
}

void fake_clock_set_monotonic(int64_t seconds)
{
    monotonic = seconds;
}

int64_t fake_clock_deadline()
{
    return current_deadline;
}

int64_t clock_wall()
{
    return wall;
}

int64_t clock_monotonic()
{
    return monotonic;
}

void clock_cond_init(pthread_cond_t *cond)
{
    pthread_cond_init(cond, nullptr);
}

void clock_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex, int64_t deadline)
{
    current_deadline = deadline;
    for (bool signalled = false; !signalled && monotonic < deadline;) {
        timespec next_look{};
        clock_gettime(CLOCK_REALTIME, &next_look);
        next_look.tv_sec += (next_look.tv_nsec + 1'000'000) / 1'000'000'000;
        next_look.tv_nsec = (next_look.tv_nsec + 1'000'000) % 1'000'000'000;
        signalled = pthread_cond_timedwait(cond, mutex, &next_look) == 0;
    }
    current_deadline = -1;
}
