// Time. The whole daemon reads the clock, sleeps and waits through these calls; unit tests link another
// clock.
#pragma once

#include <pthread.h>

#include <cstdint>

// Wall-clock seconds since the epoch.
int64_t clock_wall();

// Whole seconds of CLOCK_MONOTONIC. All periodic work uses it, so that a change of the wall clock has no
// effect.
int64_t clock_monotonic();

void clock_sleep_ms(unsigned milliseconds);

// Initialises COND with CLOCK_MONOTONIC for its deadlines. A failure is logged and ends the process with
// status 1: with the wall clock all periods would be wrong.
void clock_cond_init(pthread_cond_t *cond);

// A condition that its constructor initialises this way.
struct clock_cond {
    pthread_cond_t cond;
    clock_cond() { clock_cond_init(&cond); }
};

// Waits until COND, which clock_cond_init has initialised, is signalled or DEADLINE (whole seconds of
// clock_monotonic) is reached. The caller holds MUTEX, which is released during the wait.
void clock_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex, int64_t deadline);
