#include "base/clock.h"

#include "base/log.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

int64_t clock_wall()
{
    return time(nullptr);
}

int64_t clock_monotonic()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

void clock_sleep_ms(unsigned milliseconds)
{
    timespec left{.tv_sec = milliseconds / 1000, .tv_nsec = milliseconds % 1000 * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
        ;
}

void clock_cond_init(pthread_cond_t *cond)
{
    pthread_condattr_t attributes;
    const char *failure = nullptr;
    if (pthread_condattr_init(&attributes) != 0)
        failure = "Func pthread_cond_attr_init() error!";
    else if (pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC) != 0)
        failure = "Func pthread_condattr_setclock() error!";
    else if (pthread_cond_init(cond, &attributes) != 0)
        failure = "Func pthread_cond_setclock() error!";
    if (failure) {
        log_error("%s", failure);
        std::quick_exit(1);
    }
    pthread_condattr_destroy(&attributes);
}

void clock_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex, int64_t deadline)
{
    const timespec until{.tv_sec = deadline, .tv_nsec = 0};
    pthread_cond_timedwait(cond, mutex, &until);
}
