// Tools of the host: the one door through which they are run. Command lines go through the shell, which
// finds a tool on PATH.
#pragma once

#include <cstdio>
#include <memory>

struct shell_pipe_close {
    void operator()(FILE *pipe) const noexcept;
};

// The standard output of a running command line; closing it waits for the command's end.
using shell_pipe = std::unique_ptr<FILE, shell_pipe_close>;

// Starts COMMAND for reading its standard output. Null when it could not be started (errno is set); a tool
// that the shell does not find is started all the same and simply prints nothing.
shell_pipe shell_read(const char *command);
