// The boundary to C: no exception leaves an exported function or a thread.
#pragma once

#include "base/exceptions.h"
#include "platform/linux/host/weak_log.h"

#include <cerrno>
#include <cstring>

// Runs WORK. False if an exception ended it, after a log line that begins with NAME; errno is then set.
template <class Work>
bool end_at_exception(const char *name, Work &&work) noexcept
{
    const int error = error_of(work);
    if (error == 0)
        return true;
    log_error("%s has ended early: %s", name, strerror(error));
    errno = error;
    return false;
}

// What WORK returns; FAILURE if an exception ended it, as above.
template <class Result, class Work>
Result result_of(const char *name, Result failure, Work &&work) noexcept
{
    Result result = failure;
    end_at_exception(name, [&] { result = work(); });
    return result;
}
