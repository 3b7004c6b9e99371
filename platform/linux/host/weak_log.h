// Logging of the platform libraries, through the log_write of the executable that loaded them. In a process
// without log_write nothing is logged; the weak reference allows that.
#pragma once

#include <syslog.h>

extern "C" __attribute__((weak, format(printf, 4, 5))) void log_write(int level, const char *func, int line,
                                                                      const char *format, ...);

#define log_at(level, ...)                                                                                   \
    do {                                                                                                     \
        if (log_write)                                                                                       \
            log_write(level, __func__, __LINE__, __VA_ARGS__);                                               \
    } while (false)

#define log_error(...) log_at(LOG_ERR, __VA_ARGS__)
#define log_warning(...) log_at(LOG_WARNING, __VA_ARGS__)
#define log_info(...) log_at(LOG_INFO, __VA_ARGS__)
