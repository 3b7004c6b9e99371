#include "bench/fault_memory.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#define EXPORTED extern "C" __attribute__((visibility("default")))

// glibc's own functions under their second names.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
}

namespace {
#define THREAD_LOCAL thread_local __attribute__((tls_model("initial-exec"))) // needs no memory itself

fault_plan own_plan;
fault_plan *plan = &own_plan;
const void *libxml2_state = nullptr; // xmlGetGlobalState
int (*real_pthread_create)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) = nullptr;
int (*real_nanosleep)(const timespec *, timespec *) = nullptr;

THREAD_LOCAL int scripted_depth = 0;
THREAD_LOCAL bool serves_connection = false;

__attribute__((constructor)) void start()
{
    real_pthread_create = reinterpret_cast<decltype(real_pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    real_nanosleep = reinterpret_cast<decltype(real_nanosleep)>(dlsym(RTLD_NEXT, "nanosleep"));
    libxml2_state = dlsym(RTLD_DEFAULT, "xmlGetGlobalState");
    const char *path = getenv("QELCD_FAULTS");
    const int fd = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0)
        return;
    void *shared = mmap(nullptr, sizeof(fault_plan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (shared != MAP_FAILED)
        plan = static_cast<fault_plan *>(shared);
    close(fd);
}

bool is_main_thread()
{
    return gettid() == getpid();
}

bool is_meant()
{
    const int threads = plan->threads;
    if (threads == fault_everyone)
        return true;
    return threads == fault_connections ? serves_connection : !serves_connection && !is_main_thread();
}

bool is_libxml2_state(const void *caller)
{
    Dl_info place{};
    return libxml2_state && dladdr(caller, &place) != 0 && place.dli_saddr == libxml2_state;
}

bool must_fail(const void *caller)
{
    const uint64_t first = plan->first;
    if (first == 0 || scripted_depth > 0 || !is_meant() || is_libxml2_state(caller))
        return false;
    const uint64_t number = ++plan->seen;
    if (number < first || (number > first && !plan->and_later))
        return false;
    ++plan->failed;
    errno = ENOMEM;
    return true;
}

#define MUST_FAIL must_fail(__builtin_return_address(0))

struct thread_start {
    void *(*function)(void *);
    void *argument;
};

void *run_for_connection(void *start)
{
    const thread_start one = *static_cast<thread_start *>(start);
    free(start);
    serves_connection = true;
    return one.function(one.argument);
}
} // namespace

EXPORTED fault_plan *fault_plan_of_process()
{
    return plan;
}

EXPORTED void *malloc(size_t size)
{
    return MUST_FAIL ? nullptr : __libc_malloc(size);
}

EXPORTED void *calloc(size_t count, size_t size)
{
    return MUST_FAIL ? nullptr : __libc_calloc(count, size);
}

EXPORTED void *realloc(void *old, size_t size)
{
    return MUST_FAIL ? nullptr : __libc_realloc(old, size);
}

EXPORTED void *memalign(size_t alignment, size_t size)
{
    return MUST_FAIL ? nullptr : __libc_memalign(alignment, size);
}

EXPORTED void *aligned_alloc(size_t alignment, size_t size)
{
    return MUST_FAIL ? nullptr : __libc_memalign(alignment, size);
}

EXPORTED int posix_memalign(void **memory, size_t alignment, size_t size)
{
    if (MUST_FAIL)
        return ENOMEM;
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}

EXPORTED int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*function)(void *),
                            void *argument)
{
    static int started = 0; // by the main thread: first the scan and the timer
    if (!is_main_thread() || ++started <= 2)
        return real_pthread_create(thread, attributes, function, argument);
    auto *start = static_cast<thread_start *>(__libc_malloc(sizeof(thread_start)));
    *start = {function, argument};
    return real_pthread_create(thread, attributes, run_for_connection, start);
}

EXPORTED int nanosleep(const timespec *wanted, timespec *left)
{
    if (plan == &own_plan)
        return real_nanosleep(wanted, left);
    const int64_t ns = (int64_t{wanted->tv_sec} * 1'000'000'000 + wanted->tv_nsec) / 100;
    const timespec shorter = {.tv_sec = ns / 1'000'000'000, .tv_nsec = ns % 1'000'000'000};
    return real_nanosleep(&shorter, left);
}

// The scripted platform libraries are compiled with -finstrument-functions.
EXPORTED void __cyg_profile_func_enter(void *, void *)
{
    ++scripted_depth;
}

EXPORTED void __cyg_profile_func_exit(void *, void *)
{
    --scripted_depth;
}
