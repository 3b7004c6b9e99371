#include "base/shell.h"

void shell_pipe_close::operator()(FILE *pipe) const noexcept
{
    pclose(pipe);
}

shell_pipe shell_read(const char *command)
{
    return shell_pipe(popen(command, "re"));
}
