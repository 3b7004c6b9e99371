#include "tests/support/captured_log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

std::atomic<int> log_level{LOG_DEBUG};

namespace {
std::mutex lines_lock;
std::vector<std::string> lines; // each begins with its level, one digit
} // namespace

void log_write(int level, const char *, int, const char *format, ...)
{
    char message[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    const std::lock_guard guard(lines_lock);
    lines.push_back(std::to_string(level) + ' ' + message);
}

std::string take_log(int level)
{
    const std::lock_guard guard(lines_lock);
    std::string text;
    for (const std::string &line : std::exchange(lines, {})) {
        if (line[0] <= '0' + level)
            text += line.ends_with('\n') ? line : line + '\n';
    }
    return text;
}
