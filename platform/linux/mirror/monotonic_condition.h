// A condition variable whose time limit does not depend on the system's clock.
#pragma once

#include <pthread.h>

#include <chrono>
#include <ctime>
#include <mutex>

class monotonic_condition {
public:
    monotonic_condition()
    {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&condition_, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~monotonic_condition() { pthread_cond_destroy(&condition_); }
    monotonic_condition(const monotonic_condition &) = delete;
    monotonic_condition &operator=(const monotonic_condition &) = delete;

    void notify_all() { pthread_cond_broadcast(&condition_); }

    // May return early.
    void wait(std::unique_lock<std::mutex> &held, std::chrono::milliseconds limit)
    {
        timespec until{};
        clock_gettime(CLOCK_MONOTONIC, &until);
        constexpr long second_ns = 1'000'000'000;
        const long long ns = until.tv_nsec + limit.count() % 1000 * 1'000'000;
        until.tv_sec += limit.count() / 1000 + ns / second_ns;
        until.tv_nsec = ns % second_ns;
        pthread_cond_timedwait(&condition_, held.mutex()->native_handle(), &until);
    }

private:
    pthread_cond_t condition_;
};
