// Logging: log_write, which every function reports through, and its settings.
//
// Lines go to the system log, or to standard output if log_init says so. A message is written if its level is
// at most the threshold. Levels are those of syslog(3), passed to it unchanged: 3 error,
// 4 warning, 6 info, 7 debug. Any thread may log at any time; no lock is taken here.
//
// The six functions are C symbols of the executable, so that a platform library can log through the daemon.
#pragma once

#include <syslog.h>

#include <atomic>

extern "C" {

// Formats and writes one line. A message longer than 4095 characters is cut. Only debug lines show function
// and line. A missing newline is added.
__attribute__((format(printf, 4, 5), visibility("default"))) void
log_write(int level, const char *func, int line, const char *format, ...);

// Sets threshold and identity; TO_STDOUT non-zero sends lines to standard output, zero opens the system log
// under IDENT. IDENT is kept, not copied, as openlog(3) does. Further arguments are ignored. Returns 0.
__attribute__((visibility("default"))) int log_init(const char *ident, int to_stdout, int level, ...);

__attribute__((visibility("default"))) void log_close(void);
__attribute__((visibility("default"))) void debug_on(void);          // threshold 7
__attribute__((visibility("default"))) void debug_off(void);         // threshold 6
__attribute__((visibility("default"))) int set_log_level(int level); // returns LEVEL
}

// For a tool that a person runs: lines go to standard error.
void log_to_stderr(int level);

// The threshold. Read on every log call without a lock, so it is atomic.
extern std::atomic<int> log_level;

inline bool log_enabled(int level)
{
    return level <= log_level.load(std::memory_order_relaxed);
}

// Evaluates its arguments only if the message is written.
#define log_at(level, ...)                                                                                   \
    do {                                                                                                     \
        if (log_enabled(level))                                                                              \
            log_write(level, __func__, __LINE__, __VA_ARGS__);                                               \
    } while (false)

#define log_error(...) log_at(LOG_ERR, __VA_ARGS__)
#define log_warning(...) log_at(LOG_WARNING, __VA_ARGS__)
#define log_info(...) log_at(LOG_INFO, __VA_ARGS__)
#define log_debug(...) log_at(LOG_DEBUG, __VA_ARGS__)
