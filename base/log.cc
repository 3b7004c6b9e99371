#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

std::atomic<int> log_level{LOG_DEBUG};

namespace {
constexpr size_t message_size = 4096;

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

// Apart from the rest, so that only a debug line pays for its buffer on the stack.
__attribute__((noinline)) void emit_debug(const char *func, int line, const char *message)
{
    char text[message_size + 512];
    const int length = snprintf(text, sizeof text, "func: %s line: %d msg: %s", func, line, message);
    if (length >= 0 && static_cast<size_t>(length) < sizeof text)
        emit(LOG_DEBUG, text);
    else
        emit(LOG_DEBUG,
             (std::string("func: ") + func + " line: " + std::to_string(line) + " msg: " + message).c_str());
}
} // namespace

extern "C" void log_write(int level, const char *func, int line, const char *format, ...)
{
    if (!log_enabled(level))
        return;
    char message[message_size];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    if (length < 0)
        message[0] = '\0';
    if (level == LOG_DEBUG)
        emit_debug(func, line, message);
    else
        emit(level, message);
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
