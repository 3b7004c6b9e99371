// Running a site's program so that it can harm nothing by hanging, or by writing without end.
#pragma once

#include "base/tool.h"

#include <chrono>
#include <string>

struct run_limits {
    std::chrono::seconds time;
    size_t output = 0; // bytes of standard output; 0: it goes to /dev/null, and standard error with it
};

struct run_result {
    std::string complaint; // why it has no exit status, or its output is not whole; "" if it has
    int exit_status = 0;
    std::string output;
    std::string first_error_line; // cut to a line of a log
};

// Starts TOOL, which leads a process group, and waits for its end. At a limit the whole group is killed.
// Processes that it leaves behind live on, but what they write is not read.
run_result run_limited(tool_start tool, const run_limits &limits);
