#include "tests/unit/captured_log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

std::atomic<int> log_level{LOG_DEBUG};

namespace {
std::mutex lines_lock;
std::vector<std::pair<int, std::string>> lines;
} // namespace

extern "C" void log_write(int level, const char *, int, const char *format, ...)
{
    char message[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    std::string line = std::to_string(level) + ' ' + message;
    if (!line.ends_with('\n'))
        line += '\n';
    const std::lock_guard guard(lines_lock);
    lines.emplace_back(level, std::move(line));
}

std::string take_log(int level)
{
    const std::lock_guard guard(lines_lock);
    std::string text;
    for (const auto &[line_level, line] : lines) {
        if (line_level <= level)
            text += line;
    }
    lines.clear();
    return text;
}
