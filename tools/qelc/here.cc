#include "tools/qelc/here.h"

#include "base/log.h"
#include "tools/common/visible.h"

#include <unistd.h>

#include <cstdio>

void require_root()
{
    log_to_stderr(LOG_WARNING);
    if (geteuid() != 0)
        throw verb_end{exit_refused, "only root can do it", "type it as root"};
}

void say(const std::string &line)
{
    fprintf(stderr, "qelc: %s\n", visible(line).c_str());
}
