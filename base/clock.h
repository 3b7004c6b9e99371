// Time: the one door through which it is read, slept and waited for. Unit tests link a clock of their own.
#pragma once

#include <pthread.h>

#include <cstdint>

// Wall-clock seconds since the epoch.
int64_t clock_wall();

// Whole seconds of CLOCK_MONOTONIC, on which all periodic timing stands: a change of the wall clock does
// not disturb it.
int64_t clock_monotonic();

void clock_sleep_ms(unsigned milliseconds);

// Initialises COND so that its deadlines are CLOCK_MONOTONIC ones. A failure is logged and ends the process
// with status 1: a condition without that clock would let every period follow the wall clock.
void clock_cond_init(pthread_cond_t *cond);

// A condition that is so initialised when it is made.
struct clock_cond {
    pthread_cond_t cond;
    clock_cond() { clock_cond_init(&cond); }
};

// Waits on COND, which clock_cond_init made, until it is signalled or DEADLINE (whole seconds of
// clock_monotonic) has come. MUTEX is held by the caller, released while waiting and held again on return.
void clock_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex, int64_t deadline);
