// Threads: the one door through which they start.
#pragma once

#include <pthread.h>

// Starts FN(ARG) on a new joinable thread with a stack of 1 MiB, small enough that a connection can have
// one each; the thread detaches itself where nobody waits for it. Returns the result of pthread_create:
// 0, or an error number.
int start_thread(pthread_t *thread, void *(*fn)(void *), void *arg);
