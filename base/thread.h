// Starting threads; all threads of the daemon start here.
#pragma once

#include <pthread.h>

// Starts FN(ARG) on a new joinable thread with a stack of 1 MiB, small enough for a thread per connection. A
// thread that nobody joins detaches itself. Returns the result of pthread_create: 0, or an error number.
int start_thread(pthread_t *thread, void *(*fn)(void *), void *arg);
