#include "base/log.h"

#include "base/system_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

std::atomic<int> log_level{LOG_DEBUG};

namespace {
constexpr size_t message_size = 4096; // a longer message is cut
// Nearly every message fits this. A connection thread starts with an untouched stack, on which a larger
// buffer would cost a page fault per request.
constexpr size_t short_size = 256;

std::atomic<FILE *> log_stream{nullptr}; // null: the system log

iovec part(const char *text)
{
    return {const_cast<char *>(text), strlen(text)};
}

void write_message(int level, const char *func, int line, const char *message)
{
    char place[short_size];
    place[0] = '\0';
    if (level == LOG_DEBUG)
        snprintf(place, sizeof place, "func: %s line: %d msg: ", func, line);
    const size_t length = strlen(message);
    const char *end = length > 0 && message[length - 1] == '\n' ? "" : "\n";
    if (FILE *stream = log_stream)
        fprintf(stream, "%s%s%s", place, message, end);
    else
        system_log_send(level, std::array{part(place), part(message), part(end)});
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
    if (to_stdout)
        log_stream = stdout;
    else
        system_log_open(ident);
    return 0;
}

extern "C" void log_close(void)
{
    system_log_close();
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

void log_to_stderr(int level)
{
    set_log_level(level);
    log_stream = stderr;
}
