#include "tests/platform/captured_log.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

static std::string lines;

extern "C" __attribute__((visibility("default"), format(printf, 4, 5))) void
log_write(int level, const char *, int, const char *format, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    lines += std::to_string(level) + " " + line + "\n";
}

std::string take_log()
{
    return std::exchange(lines, "");
}
