#include "base/thread.h"

#include <cstddef>

namespace {
constexpr size_t stack_size = size_t{1024} * 1024;
}

int start_thread(pthread_t *thread, void *(*fn)(void *), void *arg)
{
    pthread_attr_t attributes;
    if (const int failed = pthread_attr_init(&attributes))
        return failed;
    pthread_attr_setstacksize(&attributes, stack_size);
    const int result = pthread_create(thread, &attributes, fn, arg);
    pthread_attr_destroy(&attributes);
    return result;
}
