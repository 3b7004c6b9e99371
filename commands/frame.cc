#include "commands/frame.h"

#include "base/log.h"
#include "commands/adoption.h"
#include "protocol/commands.h"

namespace {
int refuse(const char *why, int status)
{
    if (why)
        log_error("%s", why);
    return status;
}
} // namespace

int enter_command(const command_frame &frame, const request *req)
{
    if (frame.received)
        log_info("%s", frame.received);
    if (!req)
        return refuse(frame.null_request, status_failure);
    if (!is_adopted())
        return refuse(frame.not_adopted, status_not_adopted);
    return status_ok;
}
