#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

std::atomic<int> log_level{LOG_DEBUG};

namespace {
constexpr size_t message_size = 4096; // a longer message is cut
// Nearly every message fits this. A connection thread starts with an untouched stack, on which a larger
// buffer would cost a page fault per request.
constexpr size_t short_size = 256;

std::atomic<int> log_to_stdout{0};
const char *log_ident = nullptr;

void emit(int level, const char *line)
{
    const size_t length = strlen(line);
    const char *end = length > 0 && line[length - 1] == '\n' ? "" : "\n";
    if (log_to_stdout)
        printf("%s%s", line, end);
    else
        syslog(level, "%s%s", line, end);
}

void write_message(int level, const char *func, int line, const char *message)
{
    if (level == LOG_DEBUG)
        emit(level,
             (std::string("func: ") + func + " line: " + std::to_string(line) + " msg: " + message).c_str());
    else
        emit(level, message);
}

__attribute__((noinline)) void write_long(int level, const char *func, int line, const char *format,
                                          va_list arguments)
{
    char message[message_size];
    vsnprintf(message, sizeof message, format, arguments);
    write_message(level, func, line, message);
}
} // namespace

extern "C" void log_write(int level, const char *func, int line, const char *format, ...)
{
    if (!log_enabled(level))
        return;
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    char message[short_size];
    const int length = vsnprintf(message, sizeof message, format, arguments);
    if (length >= static_cast<int>(sizeof message))
        write_long(level, func, line, format, again);
    else
        write_message(level, func, line, length < 0 ? "" : message);
    va_end(again);
    va_end(arguments);
}

extern "C" int log_init(const char *ident, int to_stdout, int level, ...)
{
    set_log_level(level);
    log_ident = ident;
    if (to_stdout)
        log_to_stdout = to_stdout;
    else
        openlog(log_ident, 0, LOG_USER);
    return 0;
}

extern "C" void log_close(void)
{
    closelog();
}

extern "C" void debug_on(void)
{
    set_log_level(LOG_DEBUG);
}

extern "C" void debug_off(void)
{
    set_log_level(LOG_INFO);
}

extern "C" int set_log_level(int level)
{
    log_level.store(level, std::memory_order_relaxed);
    return level;
}
