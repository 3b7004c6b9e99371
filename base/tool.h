// Starting tools of the host in a state that does not depend on how this process was started.
//
// A tool gets the environment below, default signals, /dev/null as its standard streams, and no other file of
// this process that the caller does not name. It needs no more of the environment: PATH for the tools that it
// runs itself, LC_ALL so that its output is the same on every host, and HOME because some tools refuse to run
// without one.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// Where tools are looked for; what the site has put in place comes first.
constexpr char tool_path[] = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

struct tool_start {
    std::vector<std::string> words;          // a path, or a name to look for on tool_path; then arguments
    std::vector<std::string> variables = {}; // "NAME=VALUE", beside PATH, LC_ALL and HOME
    int output = -1;                         // descriptor that becomes the standard output; -1: /dev/null
    int errors = -1;                         // the same for the standard error
    int kept = -1;                           // descriptor that it gets as number 3; -1: none
    bool leads_group = false;                // in a process group of its own, which can be killed as one
};

// Starts TOOL as CHILD, for which the caller waits. Returns 0, or an error number: that of execve(2) if the
// tool cannot be run.
int start_tool(const tool_start &tool, pid_t *child);

// Waits for the end of CHILD. Returns 0 with its wait status, or an error number.
int wait_for_tool(pid_t child, int *status);
